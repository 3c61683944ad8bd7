// The control file at work: which call fails next, which state is shown.
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

/// Reads the file anew at each question; all counting starts again when it was written anew. A
/// missing file is an empty one. May be used by several threads.
class Control {
 public:
  /// @param journal  receives the lines that are not understood; outlives this object
  Control(std::wstring path, Journal& journal) : path_(std::move(path)), journal_(journal) {}

  /// Counts one call of that name. Returns the code it has to fail with, if it has to.
  std::optional<HResult> FailureOf(std::string_view call);
  bool Job2Withheld();
  bool Job5Offered();
  /// The next state of the scripted sequence; nothing when there is none.
  std::optional<int> NextScriptedState();
  bool IsVanished(std::string_view jobId);
  /// Whom calls come from: the owner of the jobs made now.
  std::string User();
  /// Whether a job belongs to another user than calls come from.
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
