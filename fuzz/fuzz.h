// What the fuzz targets share.
#ifndef KUPDATE_FUZZ_FUZZ_H_
#define KUPDATE_FUZZ_FUZZ_H_

#include <cstddef>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>

/// Reads one input by the code under test and checks what must hold for any input. Whatever it
/// throws is a fault.
struct FuzzTarget {
  std::string_view name;
  void (*run)(std::string_view input);
};

void FuzzClids(std::string_view input);
void FuzzCommand(std::string_view input);
void FuzzFeed(std::string_view input);
void FuzzManifest(std::string_view input);
void FuzzOffer(std::string_view input);
void FuzzStat(std::string_view input);
void FuzzVersion(std::string_view input);
void FuzzXml(std::string_view input);

inline constexpr FuzzTarget kFuzzTargets[] = {{"clids", FuzzClids},     {"command", FuzzCommand},
                                              {"feed", FuzzFeed},       {"manifest", FuzzManifest},
                                              {"offer", FuzzOffer},     {"stat", FuzzStat},
                                              {"version", FuzzVersion}, {"xml", FuzzXml}};

/// Ends the process, with the property's name on stderr, unless it holds.
void Check(bool holds, const char* property);

/// Cuts the first line off `text`; the whole text when it has one line.
std::string_view TakeLine(std::string_view* text);

/// The files of the process: path, as the code under test names it, to bytes. They are all there
/// is: nothing reaches the disk.
std::map<std::string, std::string>& Files();
/// The path of an application's file, and of one of the maker's.
std::string AppFile(std::string_view name);
std::string MakerFile(std::string_view name);
/// The application that has those files.
inline constexpr char kApp[] = "app";

struct Cost {
  double seconds = 0;  ///< of the processor
  std::size_t peakBytes = 0;
};
/// What the inputs of a target cost so far.
struct Costs {
  int inputs = 0;
  double seconds = 0;
  double bytesPerByte = 0;  ///< the most of memory for a byte of an input of 1 KiB or more
  double slowest = 0;       ///< seconds
  std::size_t slowestBytes = 0;

  /// Runs the target without files, and checks that it takes little memory.
  void Run(const FuzzTarget& target, std::string_view input);
  /// A row of the proof.
  void Print(std::FILE* file, std::string_view name) const;
};
/// What a call costs, its allocations counted one by one.
Cost Measure(const std::function<void()>& call);
/// Ends the counting of the call that is being measured: what follows is the check's own work.
void StopCounting();
/// While it lives nothing is counted.
class Uncounted {
 public:
  Uncounted();
  ~Uncounted();

 private:
  bool was_;
};
/// Whether it took not more than ten times its input and 1 MB.
constexpr bool IsSmall(const Cost& cost, std::size_t inputBytes) {
  return cost.peakBytes <= 10 * inputBytes + (1 << 20);
}

/// Lets the log take lines without keeping them.
void DropLog();

#endif  // KUPDATE_FUZZ_FUZZ_H_
