// What the fuzz targets and the programs that run them share.
#ifndef KUPDATE_FUZZ_FUZZ_H_
#define KUPDATE_FUZZ_FUZZ_H_

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

/// Reads one input by the code under test and checks what must hold for any input. Whatever it
/// throws is a fault.
using FuzzTarget = void (*)(std::string_view input);
extern const std::map<std::string, FuzzTarget> kFuzzTargets;

/// Ends the process, with the property's name on stderr, unless it holds.
void Check(bool holds, const char* property);

/// The application whose files the targets use, and the path of one of them.
inline constexpr char kApp[] = "app";
std::filesystem::path AppFile(std::string_view name);
void RemoveAppFiles();

struct Cost {
  double seconds;  ///< of the processor
  std::size_t peakBytes;

  /// Whether it took not more than ten times its input and 1 MB.
  bool IsSmall(std::size_t inputBytes) const { return peakBytes <= 10 * inputBytes + (1 << 20); }
};
/// What a call costs until it ends or calls StopCounting; each allocation is counted.
Cost Measure(const std::function<void()>& call);
void StopCounting();

/// What the inputs of a target cost so far.
struct Costs {
  int inputs = 0;
  double seconds = 0, bytesPerByte = 0;  ///< the most of memory for a byte of 1 KiB or more
  double slowest = 0;                    ///< seconds
  std::size_t slowestBytes = 0;

  /// Runs the target without files, and checks that it takes little memory.
  void Run(FuzzTarget target, std::string_view input);
  /// A row of the proof.
  std::string Row(const std::string& name) const;
};

#endif  // KUPDATE_FUZZ_FUZZ_H_
