#include "util/file_lock.h"

#include "util/text.h"
#include "util/win/security.h"

namespace {

// Processes of low integrity may not even open the file, since a process that has it open keeps all
// others out. All other rights come from the folder.
constexpr wchar_t kNothingForLow[] = L"S:(ML;;NRNWNX;;;ME)";

bool IsLink(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION information;
  return !::GetFileInformationByHandle(file, &information) ||
         (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

}  // namespace

void* FileLock::OpenAlone(const std::string& path, bool* isHeld) {
  const UniqueDescriptor descriptor = DescriptorOf(kNothingForLow);
  if (!descriptor) return nullptr;
  SECURITY_ATTRIBUTES security = {sizeof security, descriptor.get(), FALSE};
  UniqueFile file(::CreateFileW(WidenUtf8(path).c_str(), GENERIC_READ | GENERIC_WRITE, /*share=*/0,
                                &security, OPEN_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!file) {
    *isHeld = ::GetLastError() == ERROR_SHARING_VIOLATION;
    return nullptr;
  }
  if (!IsLink(file.get())) return file.release();
  file.reset();
  // For the line that the caller logs.
  ::SetLastError(ERROR_CANT_ACCESS_FILE);
  return nullptr;
}

void FileLock::Close(void* file) { ::CloseHandle(file); }
