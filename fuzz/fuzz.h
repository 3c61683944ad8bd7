// What the fuzz targets and the programs that run them share.
#ifndef KUPDATE_FUZZ_FUZZ_H_
#define KUPDATE_FUZZ_FUZZ_H_

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

/// Reads one input by the code under test and checks what must hold for any input. Whatever it
/// throws is a fault.
using FuzzTarget = void (*)(std::string_view input);
extern const std::map<std::string, FuzzTarget> kFuzzTargets;

/// Ends the process, with the property's name on stderr, unless it holds.
void Check(bool holds, const char* property);

/// Whether `read` takes its input. It may throw a refusal that begins with the message.
bool IsTaken(std::string_view message, const std::function<void()>& read);

/// The files of the process: path, as the code under test names it, to bytes. They are all there
/// is: nothing reaches the disk.
std::map<std::string, std::string>& Files();
/// The application that has them, and the path of one of its files.
inline constexpr char kApp[] = "app";
std::string AppFile(std::string_view name);

struct Cost {
  double seconds;  ///< of the processor
  std::size_t peakBytes;

  /// Whether it took not more than ten times its input and 1 MB.
  bool IsSmall(std::size_t inputBytes) const { return peakBytes <= 10 * inputBytes + (1 << 20); }
};
/// What a call costs, its allocations counted one by one.
Cost Measure(const std::function<void()>& call);
extern bool isCounting;
/// While it lives nothing is counted: what the check itself does, and what stands for the disk.
struct Uncounted {
  const bool was = std::exchange(isCounting, false);
  ~Uncounted() { isCounting = was; }
};

/// What the inputs of a target cost so far.
struct Costs {
  int inputs = 0;
  double seconds = 0;
  double bytesPerByte = 0;  ///< the most of memory for a byte of an input of 1 KiB or more
  double slowest = 0;       ///< seconds
  std::size_t slowestBytes = 0;

  /// Runs the target without files, and checks that it takes little memory.
  void Run(FuzzTarget target, std::string_view input);
  /// A row of the proof.
  std::string Row(const std::string& name) const;
};

/// Lets the log take lines without keeping them.
void DropLog();

#endif  // KUPDATE_FUZZ_FUZZ_H_
