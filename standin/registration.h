// The stand-in's entries in the registry.
#ifndef KUPDATE_STANDIN_REGISTRATION_H_
#define KUPDATE_STANDIN_REGISTRATION_H_

#include <string>

namespace standin {

/// Makes this program the server of the transfer service's class, and remembers `folder` and the
/// former values of the registry. A second registration changes only program and folder.
/// @param folder  absolute, with a trailing "\"
/// @return 0 or the system's error
unsigned long Register(const std::wstring& program, const std::wstring& folder);

/// Restores the former values of the registry. Does nothing without a registration.
/// @return 0 or the system's error
unsigned long Unregister();

/// The registered folder; empty without a registration.
std::wstring RegisteredFolder();

}  // namespace standin

#endif  // KUPDATE_STANDIN_REGISTRATION_H_
