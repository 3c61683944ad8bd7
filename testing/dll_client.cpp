#include "testing/dll_client.h"

#include "util/win/windows_lean.h"

#include <shlobj.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <sstream>

#include "testing/data_home.h"
#include "util/clock.h"
#include "util/text.h"

namespace testing_dll {

namespace {

namespace fs = std::filesystem;

template <class Function>
void Find(int ordinal, Function* function) {
  const FARPROC address =
      ::GetProcAddress(static_cast<HMODULE>(DllModule()), MAKEINTRESOURCEA(ordinal));
  *function = reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

Exports LoadExports() {
  Exports dll;
  Find(1, &dll.forceUpdateCheck);
  Find(2, &dll.getApplicationState);
  Find(3, &dll.getOptionalParam);
  Find(4, &dll.isUpgradeAvailable);
  Find(5, &dll.onApplicationStartup);
  Find(6, &dll.onApplicationUninstall);
  Find(7, &dll.setApplicationState);
  Find(8, &dll.setExecutorPath);
  Find(9, &dll.setOptionalParam);
  Find(10, &dll.usageReport);
  Find(11, &dll.downloadAndInstallSilentUpdate);
  Find(12, &dll.getLocale);
  Find(13, &dll.getUniqUserId);
  Find(14, &dll.getUniqueParam);
  Find(15, &dll.isUpdateAvailable);
  Find(16, &dll.setLocale);
  Find(17, &dll.setUniqueParam);
  return dll;
}

fs::path KnownFolder(const GUID& id) {
  PWSTR path = nullptr;
  ::SHGetKnownFolderPath(id, 0, nullptr, &path);
  const fs::path folder = path ? path : L"";
  ::CoTaskMemFree(path);
  return folder / "Krelix" / "Updater";
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

fs::path JournalFile() { return fs::path(Setting(L"KUPDATE_STANDIN_FOLDER")) / "journal.jsonl"; }
fs::path ControlFile() { return fs::path(Setting(L"KUPDATE_STANDIN_FOLDER")) / "control.txt"; }

// Calls that say nothing of what the library wants done.
bool IsNoise(const std::string& line) {
  return line.find("\"call\":\"CreateInstance\"") != line.npos ||
         line.find("\"call\":\"GetState\"") != line.npos ||
         line.find("\"event\":\"start\"") != line.npos ||
         line.find("\"event\":\"stop\"") != line.npos;
}

}  // namespace

void* DllModule() {
  static const HMODULE module = [] {
    const HMODULE loaded = ::LoadLibraryW(Setting(L"KUPDATE_DLL").c_str());
    if (!loaded) {
      std::fprintf(stderr, "KUPDATE_DLL does not name a library that loads: error %lu\n",
                   ::GetLastError());
      std::exit(2);
    }
    return loaded;
  }();
  return module;
}

const Exports& Dll() {
  static const Exports exports = LoadExports();
  return exports;
}

std::wstring Setting(const wchar_t* name) {
  const wchar_t* const value = ::_wgetenv(name);
  return value ? value : L"";
}

std::string HttpUrl(std::string_view path) {
  return NarrowUtf8(Setting(L"KUPDATE_HTTP")) + "/" + std::string(path);
}

fs::path RoamingFolder() { return KnownFolder(FOLDERID_RoamingAppData); }
fs::path LocalFolder() { return KnownFolder(FOLDERID_LocalAppData); }
fs::path DataFolder() { return KnownFolder(FOLDERID_LocalAppDataLow); }

fs::path TempFolder() {
  wchar_t path[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH + 1, path);
  return path;
}

std::string Publish(const std::string& name, std::string_view content) {
  WriteBytes(fs::path(Setting(L"KUPDATE_WWW")) / name, content);
  return HttpUrl(name);
}

std::string ValueOf(const fs::path& file, const std::string& key) {
  const std::string text = ReadBytes(file);
  const std::string open = "<" + key + ">";
  const std::size_t begin = text.find(open);
  if (begin == text.npos) return {};
  const std::size_t end = text.find("</" + key + ">", begin);
  return text.substr(begin + open.size(), end - begin - open.size());
}

DllLog::DllLog() {
  // The log is named by the process's first call; the tests' main makes that one.
  file_ = RoamingFolder() / "kupdate-exec-first.log";
  start_ = ReadBytes(file_).size();
}

std::vector<std::string> DllLog::Lines() const {
  static const std::regex header("^..:..:.. (.:[^(]*)\\([0-9]+\\):");
  std::vector<std::string> lines = SplitLines(ReadBytes(file_).substr(start_));
  for (std::string& line : lines) line = std::regex_replace(line, header, "$1:");
  return lines;
}

bool DllLog::Has(std::string_view line) const {
  const std::vector<std::string> lines = Lines();
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

TransferService::TransferService(std::string_view control)
    : start_(ReadBytes(JournalFile()).size()) {
  Control(control);
}

TransferService::~TransferService() { Control({}); }

void TransferService::Control(std::string_view lines) { WriteBytes(ControlFile(), lines); }

std::string TransferService::Text() const { return ReadBytes(JournalFile()).substr(start_); }

std::vector<std::string> TransferService::Journal() const {
  std::vector<std::string> lines = SplitLines(Text());
  lines.erase(std::remove_if(lines.begin(), lines.end(), IsNoise), lines.end());
  static const std::regex time("\"time\":\"[^\"]*\",?");
  for (std::string& line : lines) line = std::regex_replace(line, time, "");
  return lines;
}

int TransferService::Count(std::string_view text) const {
  int count = 0;
  for (const std::string& line : SplitLines(Text())) count += line.find(text) != line.npos;
  return count;
}

bool TransferService::WaitFor(std::string_view text) const {
  return Eventually([&] { return Count(text) > 0; });
}

bool Eventually(const std::function<bool()>& done) {
  for (int tries = 0; tries < 1000; ++tries) {
    if (done()) return true;
    SleepMilliseconds(20);
  }
  return false;
}

void* StartChild(const std::wstring& arguments) {
  wchar_t program[MAX_PATH + 1] = {};
  ::GetModuleFileNameW(nullptr, program, MAX_PATH);
  std::wstring commandLine = L"\"" + std::wstring(program) + L"\" --child " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  ::CreateProcessW(program, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                   &startup, &started);
  ::CloseHandle(started.hThread);
  return started.hProcess;
}

unsigned EndOf(void* process) {
  DWORD code = 0;
  ::WaitForSingleObject(process, INFINITE);
  ::GetExitCodeProcess(process, &code);
  ::CloseHandle(process);
  return code;
}

}  // namespace testing_dll
