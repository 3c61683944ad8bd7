#include "testing/dll_client.h"

#include "util/win/windows_lean.h"

#include <shlobj.h>

#include <cstdio>
#include <cstdlib>
#include <regex>

#include "testing/data_home.h"
#include "util/text.h"

namespace testing_dll {

namespace fs = std::filesystem;

namespace {

fs::path KnownFolder(const GUID& id) {
  PWSTR path = nullptr;
  ::SHGetKnownFolderPath(id, 0, nullptr, &path);
  const fs::path folder = path ? path : L"";
  ::CoTaskMemFree(path);
  return folder / "Krelix" / "Updater";
}

}  // namespace

void* DllModule() {
  static const HMODULE module = ::LoadLibraryW(Setting(L"KUPDATE_DLL").c_str());
  if (module) return module;
  std::fprintf(stderr, "KUPDATE_DLL does not name a library that loads: error %lu\n",
               ::GetLastError());
  std::exit(2);
}

void* Export::Address() const {
  return reinterpret_cast<void*>(
      ::GetProcAddress(static_cast<HMODULE>(DllModule()), MAKEINTRESOURCEA(ordinal)));
}

const Exports& Dll() {
  static const Exports exports;
  return exports;
}

std::string TextFrom(decltype(&DLLGetLocale) getter, const char* appId) {
  char buffer[64] = "?";
  std::int32_t size = sizeof buffer;
  return getter(appId, buffer, &size) == KUPDATE_S_OK ? buffer : "failed";
}

fs::path RoamingFolder() { return KnownFolder(FOLDERID_RoamingAppData); }
fs::path LocalFolder() { return KnownFolder(FOLDERID_LocalAppData); }
fs::path DataFolder() { return KnownFolder(FOLDERID_LocalAppDataLow); }
fs::path TempFolder() { return fs::temp_directory_path(); }

std::string FeedWith(const std::string& version, const std::string& platform) {
  return "<rss><channel><item><version:platform>" + platform +
         "</version:platform><version:version>" + version +
         "</version:version><version:status>release</version:status><guid>http://d/f</guid>"
         "</item></channel></rss>";
}

std::string ValueOf(const fs::path& file, const std::string& key) {
  const std::string text = ReadBytes(file);
  std::smatch match;
  return std::regex_search(text, match, std::regex("<" + key + ">([^<]*)</")) ? match[1].str() : "";
}

void SignalResult(const std::string& appId) {
  const std::wstring name = L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + WidenUtf8(appId);
  const HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, name.c_str());
  ::SetEvent(event);
  ::CloseHandle(event);
}

void* StartProgram(const std::wstring& program, std::wstring commandLine, void* output) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = output ? STARTF_USESTDHANDLES : 0;
  startup.hStdOutput = output;
  startup.hStdError = output;
  PROCESS_INFORMATION started = {};
  ::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, output != nullptr, 0,
                   nullptr, nullptr, &startup, &started);
  ::CloseHandle(started.hThread);
  return started.hProcess;
}

void* StartChild(const std::wstring& arguments) {
  const std::wstring program = ThisProgram();
  return StartProgram(program, L"\"" + program + L"\" --child " + arguments, nullptr);
}

unsigned EndOf(void* process) {
  DWORD code = ~DWORD{0};
  ::WaitForSingleObject(process, INFINITE);
  ::GetExitCodeProcess(process, &code);
  ::CloseHandle(process);
  return code;
}

}  // namespace testing_dll
