// Who runs this process, and under what restraint.
#ifndef KUPDATE_UTIL_USER_H_
#define KUPDATE_UTIL_USER_H_

#include <string>

/// The user's logon name, up to 1023 characters; empty when the system does not tell it.
std::wstring LogonName();

namespace JustUtil {

/// Whether this process is a browser's in protected mode. Only a system that says so counts:
/// without the browser's library or its function, or when the call fails, it is not.
bool CheckPMIE8();

}  // namespace JustUtil

#endif  // KUPDATE_UTIL_USER_H_
