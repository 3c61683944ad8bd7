#include "bench/windows/recorder.h"

#include "util/win/windows_lean.h"

#include <objbase.h>
#include <shlobj.h>

#include <cstring>
#include <map>

namespace {

struct Record {
  Ops operations;
  std::string besides;
  std::map<HANDLE, Op> objects;  // mutexes and events, by their handles
};

// Never deleted: the library may still call a replaced function while the process ends.
Record& Log() {
  static Record& record = *new Record;
  return record;
}

HANDLE WINAPI OnCreateFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                           DWORD disposition, DWORD flags, HANDLE like) {
  const HANDLE file = ::CreateFileW(path, access, share, security, disposition, flags, like);
  // The library asks why a file cannot be opened, and a growing list could change the last error.
  const DWORD error = ::GetLastError();
  const Op opened = access == FILE_APPEND_DATA ? Op::kLog
                    : access == GENERIC_WRITE  ? Op::kWrite
                                               : Op::kOpen;
  Log().operations.push_back(file == INVALID_HANDLE_VALUE ? Op::kMiss : opened);
  ::SetLastError(error);
  return file;
}

// The library reads the file that it has just opened, so opening and reading become one operation.
BOOL WINAPI OnReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read, OVERLAPPED* overlapped) {
  Ops& operations = Log().operations;
  if (!operations.empty() && operations.back() == Op::kOpen) operations.back() = Op::kRead;
  return ::ReadFile(file, buffer, size, read, overlapped);
}

BOOL WINAPI OnFlush(HANDLE file) {
  Log().operations.push_back(Op::kFlush);
  return ::FlushFileBuffers(file);
}

BOOL WINAPI OnMove(LPCWSTR from, LPCWSTR to, DWORD flags) {
  Log().operations.push_back(Op::kReplace);
  return ::MoveFileExW(from, to, flags);
}

BOOL WINAPI OnDelete(LPCWSTR path) {
  Log().operations.push_back(Op::kDelete);
  return ::DeleteFileW(path);
}

BOOL WINAPI OnCopy(LPCWSTR from, LPCWSTR to, BOOL fail) {
  Log().operations.push_back(Op::kCopy);
  return ::CopyFileW(from, to, fail);
}

HANDLE WINAPI OnFind(LPCWSTR path, WIN32_FIND_DATAW* data) {
  Log().operations.push_back(Op::kLook);
  return ::FindFirstFileW(path, data);
}

HANDLE WINAPI OnCreateMutex(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name) {
  Log().operations.push_back(Op::kMutex);
  const HANDLE mutex = ::CreateMutexW(security, owned, name);
  const DWORD error = ::GetLastError();
  Log().objects[mutex] = Op::kMutex;
  ::SetLastError(error);
  return mutex;
}

HANDLE WINAPI OnCreateEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL set, LPCWSTR name) {
  Log().operations.push_back(Op::kEvent);
  const HANDLE event = ::CreateEventW(security, manual, set, name);
  const DWORD error = ::GetLastError();
  Log().objects[event] = Op::kEvent;
  ::SetLastError(error);
  return event;
}

// Two operations have this function: taking a mutex and waiting for an executor's answer.
DWORD WINAPI OnWait(HANDLE object, DWORD milliseconds) {
  const auto known = Log().objects.find(object);
  const bool isMutex = known != Log().objects.end() && known->second == Op::kMutex;
  Log().operations.push_back(isMutex ? Op::kAcquire : Op::kWait);
  return ::WaitForSingleObject(object, milliseconds);
}

BOOL WINAPI OnRelease(HANDLE mutex) {
  Log().operations.push_back(Op::kRelease);
  return ::ReleaseMutex(mutex);
}

BOOL WINAPI OnClose(HANDLE object) {
  const auto known = Log().objects.find(object);
  if (known != Log().objects.end()) {
    if (known->second == Op::kMutex) Log().operations.push_back(Op::kClose);
    // The system gives the same handle to later objects, which may be of another kind.
    Log().objects.erase(known);
  }
  return ::CloseHandle(object);
}

BOOL WINAPI OnCreateProcess(LPCWSTR program, LPWSTR line, LPSECURITY_ATTRIBUTES process,
                            LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags, LPVOID block,
                            LPCWSTR folder, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION started) {
  Log().operations.push_back(Op::kProgram);
  return ::CreateProcessW(program, line, process, thread, inherit, flags, block, folder, startup,
                          started);
}

// Not an operation of traces: the library opens this key only in programs with an administrator's
// rights, which not every version of Wine gives.
LSTATUS WINAPI OnOpenKey(HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
  Log().besides += " key";
  return ::RegOpenKeyExW(root, path, options, access, key);
}

HRESULT WINAPI OnEnterCom(LPVOID reserved, DWORD kind) {
  Log().operations.push_back(Op::kEnterCom);
  return ::CoInitializeEx(reserved, kind);
}

void WINAPI OnLeaveCom() {
  Log().operations.push_back(Op::kLeaveCom);
  ::CoUninitialize();
}

HRESULT WINAPI OnCreateInstance(REFCLSID type, LPUNKNOWN outer, DWORD context, REFIID id,
                                LPVOID* object) {
  Log().operations.push_back(Op::kService);
  return ::CoCreateInstance(type, outer, context, id, object);
}

BOOL WINAPI OnMakeFolder(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  Log().besides += " folder";
  return ::CreateDirectoryW(path, security);
}

BOOL WINAPI OnShellFolder(HWND window, LPWSTR path, int folder, BOOL create) {
  Log().besides += " shell-folder";
  return ::SHGetSpecialFolderPathW(window, path, folder, create);
}

DWORD WINAPI OnTempPath(DWORD size, LPWSTR path) {
  Log().besides += " temporary-folder";
  return ::GetTempPathW(size, path);
}

FARPROC WINAPI OnGetProcAddress(HMODULE module, LPCSTR name);

template <class Function>
void* Address(Function* function) {
  return reinterpret_cast<void*>(function);
}

const struct {
  const char* name;
  void* replacement;
} kReplacements[] = {
    {"CreateFileW", Address(OnCreateFile)},
    {"ReadFile", Address(OnReadFile)},
    {"FlushFileBuffers", Address(OnFlush)},
    {"MoveFileExW", Address(OnMove)},
    {"DeleteFileW", Address(OnDelete)},
    {"CopyFileW", Address(OnCopy)},
    {"FindFirstFileW", Address(OnFind)},
    {"CreateMutexW", Address(OnCreateMutex)},
    {"CreateEventW", Address(OnCreateEvent)},
    {"WaitForSingleObject", Address(OnWait)},
    {"ReleaseMutex", Address(OnRelease)},
    {"CloseHandle", Address(OnClose)},
    {"CreateProcessW", Address(OnCreateProcess)},
    {"RegOpenKeyExW", Address(OnOpenKey)},
    {"CoInitializeEx", Address(OnEnterCom)},
    {"CoUninitialize", Address(OnLeaveCom)},
    {"CoCreateInstance", Address(OnCreateInstance)},
    {"CreateDirectoryW", Address(OnMakeFolder)},
    {"SHGetSpecialFolderPathW", Address(OnShellFolder)},
    {"GetTempPathW", Address(OnTempPath)},
    {"GetProcAddress", Address(OnGetProcAddress)},
};

void* ReplacementOf(const char* name) {
  for (const auto& known : kReplacements) {
    if (std::strcmp(name, known.name) == 0) return known.replacement;
  }
  return nullptr;
}

// The library finds functions of other DLLs at run time; these are replaced here.
FARPROC WINAPI OnGetProcAddress(HMODULE module, LPCSTR name) {
  // A small number in place of the name is an ordinal.
  const bool isName = reinterpret_cast<ULONG_PTR>(name) > MAXWORD;
  void* const replacement = isName ? ReplacementOf(name) : nullptr;
  return replacement ? reinterpret_cast<FARPROC>(replacement) : ::GetProcAddress(module, name);
}

// Newer linkers make import tables read-only.
void Replace(IMAGE_THUNK_DATA* slot, void* replacement) {
  DWORD before = 0;
  ::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &before);
  slot->u1.Function = reinterpret_cast<ULONG_PTR>(replacement);
  ::VirtualProtect(slot, sizeof *slot, before, &before);
}

}  // namespace

Recorder::Recorder(void* module) {
  auto* const base = static_cast<BYTE*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* pe = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const DWORD imports =
      pe->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports);
  for (; import->Name; ++import) {
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->FirstThunk);
    const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + import->OriginalFirstThunk);
    // Loading has put addresses into the slots; the names are in a table beside them.
    for (; name->u1.AddressOfData; ++slot, ++name) {
      const auto* entry =
          reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      void* const replacement = ReplacementOf(reinterpret_cast<const char*>(entry->Name));
      if (replacement) Replace(slot, replacement);
    }
  }
}

void Recorder::Start() {
  Log().operations.clear();
  Log().besides.clear();
}

const Ops& Recorder::Operations() const { return Log().operations; }
const std::string& Recorder::Besides() const { return Log().besides; }
