// The service's place in the registry.
#ifndef KUPDATE_STANDIN_REGISTRATION_H_
#define KUPDATE_STANDIN_REGISTRATION_H_

#include <string>

namespace standin {

/// Makes this program the server of the transfer service's class, and remembers `folder` and what
/// stood in the registry before. Registering again only changes program and folder.
/// @param folder  absolute, with a trailing "\"
/// @return 0 or the system's error
unsigned long Register(const std::wstring& program, const std::wstring& folder);

/// Puts back what stood in the registry before. Without a registration there is nothing to do.
/// @return 0 or the system's error
unsigned long Unregister();

/// The folder that was registered; empty when there is none.
std::wstring RegisteredFolder();

}  // namespace standin

#endif  // KUPDATE_STANDIN_REGISTRATION_H_
