// What a host says of its calls before and after each: the line is in the file when Write returns,
// however its process ends.
#ifndef KUPDATE_PROOF_STORM_DIARY_H_
#define KUPDATE_PROOF_STORM_DIARY_H_

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "util/handle.h"

namespace storm {

/// The calls a host makes: the ordinals of the exports, and one that only the library has.
inline constexpr int kExports = 17;
inline constexpr int kAddAction = 18;

/// Written by the host's one thread. Each call has an item, what is to arrive at the web server, or
/// "-".
class Diary {
 public:
  explicit Diary(const std::filesystem::path& file);
  /// Tells that the host is about to begin; whoever wants to kill it among its calls waits for it.
  void Ready();
  void Begin(int call, const std::string& item);
  void End(int call, const std::string& item, bool succeeded, unsigned milliseconds);

 private:
  void Write(const std::string& line);

  UniqueHandle file_;
};

/// What a host's diary, whole or cut off, says.
struct Account {
  std::vector<std::string> tried;         ///< all items, in order
  std::vector<std::string> acknowledged;  ///< those whose call returned KUPDATE_S_OK
  int calls = 0;                          ///< that returned
  int failed = 0;                         ///< that returned anything else
  int unfinished = 0;                     ///< the call that the host died in, 0: in none
  unsigned longestMilliseconds = 0;
  int longestCall = 0;
};

Account ReadDiary(const std::filesystem::path& file);

/// The two words of states that are counted; all other items are there once.
bool IsState(const std::string& item);

/// How often something was seen.
using Counts = std::map<std::string, int>;

}  // namespace storm

#endif  // KUPDATE_PROOF_STORM_DIARY_H_
