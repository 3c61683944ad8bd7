// The text of the control file.
#ifndef KUPDATE_STANDIN_CONTROL_SCRIPT_H_
#define KUPDATE_STANDIN_CONTROL_SCRIPT_H_

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "standin/codes.h"

namespace standin {

/// One "fail" line: the calls of that name from number `first` on, `count` of them, fail with
/// `code`.
struct FailRule {
  std::string call;
  HResult code = 0;
  std::uint64_t first = 1;
  std::uint64_t count = std::numeric_limits<std::uint64_t>::max();
};

/// The content of a control file. The default is a service that behaves.
struct ControlScript {
  std::vector<FailRule> failures;
  bool withholdJob2 = false;
  bool offerJob5 = false;
  std::vector<int> states;  ///< delivered by GetState in this order, the last one repeated
  std::vector<std::string> vanished;          ///< job ids in registry form, or "all"
  std::string user = "self";                  ///< the user that all calls come from
  std::map<std::string, std::string> owners;  ///< by job id in registry form
  bool anyServer = false;                     ///< whether servers may lack HEAD, sizes and ranges
  double clockFactor = 1;                     ///< job seconds per second, above 0
  double laterSeconds = 0;                    ///< how far the jobs' clock is ahead
  std::uint32_t lingerSeconds = 5;            ///< how long an unused server stays
  std::vector<std::string> problems;          ///< a sentence for each line not understood
};

/// Reads the lines described in docs/standin.md. Lines that cannot be understood become problems
/// and have no other effect.
ControlScript ParseControlScript(std::string_view text);

}  // namespace standin

#endif  // KUPDATE_STANDIN_CONTROL_SCRIPT_H_
