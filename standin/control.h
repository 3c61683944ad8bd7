// The control file in use: it decides which call fails next and which state clients see.
#ifndef KUPDATE_STANDIN_CONTROL_H_
#define KUPDATE_STANDIN_CONTROL_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "standin/control_script.h"
#include "standin/journal.h"

namespace standin {

/// Reads the file again at each question. All counting starts again when the file has been written
/// again. A missing file counts as empty. May be used by several threads.
class Control {
 public:
  /// @param journal  receives each line that cannot be understood; outlives this object
  Control(std::wstring path, Journal& journal) : path_(std::move(path)), journal_(journal) {}

  /// Counts one call of that name. Returns the code that it must fail with, if it must fail.
  std::optional<HResult> FailureOf(std::string_view call);
  bool Job2Withheld();
  bool Job5Offered();
  /// The next state of the scripted sequence; empty without a sequence.
  std::optional<int> NextScriptedState();
  bool IsVanished(std::string_view jobId);
  /// The user that all calls come from, and who owns the jobs made now.
  std::string User();
  /// Whether the job belongs to a user other than User().
  /// @param owner  the user who made it; the file may name another
  bool IsForeign(std::string_view jobId, const std::string& owner);
  bool AnyServerWillDo();
  double ClockFactor();
  double LaterSeconds();
  std::uint32_t LingerSeconds();

 private:
  struct Content {
    std::string text;
    std::uint64_t writeTicks = 0;
    bool operator==(const Content&) const = default;
  };

  static Content Read(const std::wstring& path);
  void Refresh();

  std::mutex mutex_;
  std::wstring path_;
  Journal& journal_;
  Content content_;
  ControlScript script_;
  std::map<std::string, std::uint64_t, std::less<>>
      calls_;  // number of calls since content_ was read
  std::size_t nextState_ = 0;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_CONTROL_H_
