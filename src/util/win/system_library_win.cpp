#include "util/win/system_library.h"

#include <stdexcept>
#include <string>

#include "util/diag_log.h"
#include "util/log_line.h"

namespace {

// Windows 7 without its update of 2011 refuses the flag; a function of that update shows that it is
// there. Without the flag, the system looks for the imports of a DLL first in the folder of that
// DLL.
DWORD SearchFlags() {
  const bool hasFlag = ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "AddDllDirectory");
  return hasFlag ? LOAD_LIBRARY_SEARCH_SYSTEM32 : LOAD_WITH_ALTERED_SEARCH_PATH;
}

}  // namespace

UniqueModule LoadSystemLibrary(const wchar_t* name) {
  wchar_t directory[MAX_PATH] = {};
  const UINT length = ::GetSystemDirectoryW(directory, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return {};
  const std::wstring path = std::wstring(directory) + L'\\' + name;
  return UniqueModule(::LoadLibraryExW(path.c_str(), nullptr, SearchFlags()));
}

void* SystemFunctionAddress::Find() {
  if (void* const known = address_) return known;
  UniqueModule module = LoadSystemLibrary(dll_);
  void* const found =
      module ? reinterpret_cast<void*>(::GetProcAddress(module.get(), name_)) : nullptr;
  if (!found) {
    LOG_E << "Can't find function:" << name_ << kLastError;
    return nullptr;
  }
  // Never freed: the address stays valid. Two threads that come here at once find the same one.
  module.release();
  address_ = found;
  return found;
}

void* SystemFunctionAddress::Get() {
  void* const found = Find();
  if (!found) throw std::runtime_error(std::string("Can't find function: ") + name_);
  return found;
}
