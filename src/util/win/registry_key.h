// Shared by the sources of the registry.
#ifndef KUPDATE_UTIL_WIN_REGISTRY_KEY_H_
#define KUPDATE_UTIL_WIN_REGISTRY_KEY_H_

#include <cstddef>
#include <string>
#include <vector>

#include "util/registry.h"
#include "util/win/unique.h"

HKEY RootKey(RegistryRoot root);

/// Opens a key; empty on failure.
/// @param status  receives the system's error
UniqueKey OpenKey(RegistryRoot root, const std::wstring& path, REGSAM access, LSTATUS* status);

/// The wide text that stands in a value's data, an ending zero included.
std::wstring TextOfData(const std::vector<std::byte>& bytes);

#endif  // KUPDATE_UTIL_WIN_REGISTRY_KEY_H_
