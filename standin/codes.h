// Result codes and job states as the transfer service's clients know them.
#ifndef KUPDATE_STANDIN_CODES_H_
#define KUPDATE_STANDIN_CODES_H_

#include <optional>
#include <string>
#include <string_view>

namespace standin {

/// The system's HRESULT, for headers that do not include the system's.
using HResult = long;

/// Numbers as in the service's interface.
enum class JobState : int {
  kQueued,
  kConnecting,
  kTransferring,
  kSuspended,
  kError,
  kTransientError,
  kTransferred,
  kAcknowledged,
  kCancelled,
};

/// "QUEUED" and so on; a number outside the enumeration is given in decimal.
std::string StateName(int state);

/// The reverse: a name, or a decimal number of any value. Nothing for other text.
std::optional<int> ParseState(std::string_view text);

/// "0x80200003".
std::string CodeText(HResult code);

/// The HRESULT that stands for a Win32 error. Error 0 becomes E_FAIL.
HResult CodeOfSystemError(unsigned long error);

}  // namespace standin

#endif  // KUPDATE_STANDIN_CODES_H_
