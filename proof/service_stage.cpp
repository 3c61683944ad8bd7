#include "proof/service_stage.h"

#include "util/win/windows_lean.h"
// After the system's header, which they need.
#include <bits.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <system_error>

#include "standin/job_file.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/files.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace proof {

namespace {

std::vector<fs::path> FilesIn(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    if (entry.is_regular_file(ignored)) files.push_back(entry.path());
  }
  return files;
}

std::string NameOf(const fs::path& path) { return NarrowUtf8(path.filename().wstring()); }

bool IsOfTransfer(const std::string& name) {
  return name.starts_with("kupdate-") || name.ends_with("-version.rss") || name.starts_with("BIT");
}

void Add(const std::string& word, std::string* words) {
  if (!words->empty()) *words += ' ';
  *words += word;
}

// The states and parameters of a statistics file, in its order.
std::string Statistics(const std::string& text) {
  static const std::regex value("<(?:state|param) ord=\"[0-9]+\">([^<]*)<");
  std::string words;
  for (std::sregex_iterator at(text.begin(), text.end(), value), end; at != end; ++at) {
    Add((*at)[1], &words);
  }
  if (text.find("confirmed=\"true\"") != text.npos) Add("confirmed", &words);
  return words;
}

std::string ValuesIn(const fs::path& file, const std::string& name) {
  if (name == "appinfo.xml") return ValueOf(file, "UpgradeAvailable");
  if (name == "updinfo.xml") return ValueOf(file, "VerMajor") + "." + ValueOf(file, "VerMinor");
  if (name == "statistics.xml" || name.starts_with("in_work_")) return Statistics(ReadBytes(file));
  return {};
}

// A temporary file of the service has a number for a name, and the answers' names hold the id.
std::string PlainName(std::string name, const std::string& appId) {
  if (name.starts_with("BIT")) return "BIT.tmp";
  const std::size_t at = name.find(appId);
  return at == name.npos ? name : name.replace(at, appId.size(), "ID");
}

std::string Purpose(const standin::JobRecord& job) {
  if (job.settings.displayName != L"Kupdate-task") return "another program's";
  const std::wstring command = job.settings.notifyParameters.value_or(L"");
  if (command.find(L"--update-check") != command.npos) return "check";
  if (command.find(L"--stat-callback") != command.npos) return "ping";
  return "bare";
}

std::string JobsFile() {
  return NarrowUtf8((fs::path(Setting(L"KUPDATE_STANDIN_FOLDER")) / "jobs.txt").wstring());
}

fs::path AccessLog() { return Setting(L"KUPDATE_ACCESS_LOG"); }

IBackgroundCopyManager* NewManager() {
  ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  IBackgroundCopyManager* manager = nullptr;
  ::CoCreateInstance(__uuidof(BackgroundCopyManager), nullptr, CLSCTX_ALL,
                     __uuidof(IBackgroundCopyManager), reinterpret_cast<void**>(&manager));
  return manager;
}

}  // namespace

std::wstring ExecutorPath() { return RoamingFolder() / L"kupdate-exec.exe"; }

void PlaceExecutor(const std::wstring& program) {
  fs::create_directories(RoamingFolder());
  // A program that has just ended may be held for a moment.
  Eventually([&] {
    std::error_code error;
    return fs::copy_file(program, ExecutorPath(), fs::copy_options::overwrite_existing, error);
  });
}

void RemoveExecutor() {
  Eventually([] {
    std::error_code error;
    fs::remove(ExecutorPath(), error);
    return !error;
  });
}

void CleanUserFolders() {
  std::error_code ignored;
  for (const fs::path& file : FilesIn(TempFolder())) {
    if (IsOfTransfer(NameOf(file))) fs::remove(file, ignored);
  }
  for (const fs::path& file : FilesIn(RoamingFolder())) {
    if (file.extension() == L".log") fs::remove(file, ignored);
  }
  fs::remove_all(LocalFolder(), ignored);
}

std::string FilesOf(const std::string& appId) {
  std::vector<fs::path> files = FilesIn(DataFolder() / appId);
  for (const fs::path& file : FilesIn(LocalFolder() / appId)) {
    // Each application has its record there, its answers and their locks.
    const std::string name = NameOf(file);
    if (name != "local.xml" && name != "answer.xml" && !name.ends_with(".lock")) {
      files.push_back(file);
    }
  }
  for (const fs::path& file : FilesIn(TempFolder())) {
    const std::string name = NameOf(file);
    if (IsOfTransfer(name) && (name.starts_with("BIT") || name.find(appId) != name.npos)) {
      files.push_back(file);
    }
  }
  std::vector<std::string> words;
  for (const fs::path& file : files) {
    const std::string name = NameOf(file);
    const std::string values = ValuesIn(file, name);
    words.push_back(PlainName(name, appId) + (values.empty() ? "" : "(" + values + ")"));
  }
  std::sort(words.begin(), words.end());
  std::string text;
  for (const std::string& word : words) Add(word, &text);
  return text;
}

std::vector<standin::JobRecord> LiveJobs() {
  return standin::ParseJobs(FileSystem::ReadFile(JobsFile()));
}

std::string LiveJobsText() {
  std::map<std::string, int> counts;
  for (const standin::JobRecord& job : LiveJobs()) {
    ++counts[Purpose(job) + " " + standin::StateName(static_cast<int>(job.state))];
  }
  std::string text;
  for (const auto& [job, count] : counts) {
    if (!text.empty()) text += ", ";
    text += job + (count > 1 ? " x" + std::to_string(count) : "");
  }
  return text.empty() ? "none" : text;
}

bool IsFetching() {
  for (const fs::path& file : FilesIn(TempFolder())) {
    if (NameOf(file).starts_with("BIT") && !ReadBytes(file).empty()) return true;
  }
  return false;
}

bool IsLogged(std::string_view line) {
  static const std::regex header("^..:..:.. (.:[^(]*)\\([0-9]+\\):");
  for (const fs::path& file : FilesIn(RoamingFolder())) {
    if (file.extension() != L".log") continue;
    std::istringstream lines(ReadBytes(file));
    for (std::string text; std::getline(lines, text);) {
      if (!text.empty() && text.back() == '\r') text.pop_back();
      if (text.find(line.substr(0, 8)) != text.npos &&
          std::regex_replace(text, header, "$1:") == line) {
        return true;
      }
    }
  }
  return false;
}

void SetTimesBack(const std::string& appId, std::int64_t seconds) {
  static const std::regex time("(<(?:Last|Next)(?:Ping|Check)Time>)([0-9]+)");
  const fs::path file = DataFolder() / appId / "appinfo.xml";
  const std::string text = ReadBytes(file);
  std::string changed;
  std::size_t end = 0;
  for (std::sregex_iterator at(text.begin(), text.end(), time), none; at != none; ++at) {
    const auto begin = static_cast<std::size_t>(at->position());
    changed += text.substr(end, begin - end) + (*at)[1].str() +
               std::to_string(ParseInt64((*at)[2].str()) - seconds);
    end = begin + static_cast<std::size_t>(at->length());
  }
  WriteBytes(file, changed + text.substr(end));
  for (const fs::path& block : FilesIn(DataFolder() / appId)) {
    if (!NameOf(block).starts_with("in_work_")) continue;
    std::error_code ignored;
    fs::last_write_time(block, fs::last_write_time(block) - std::chrono::seconds(seconds), ignored);
  }
}

void SetJobTimesBack(std::int64_t seconds) {
  StopService();
  std::vector<standin::JobRecord> jobs = LiveJobs();
  for (standin::JobRecord& job : jobs) {
    const std::uint64_t ticks = static_cast<std::uint64_t>(seconds) * 10'000'000;
    job.times.created -= ticks;
    job.times.modified -= ticks;
  }
  FileSystem::WriteFile(JobsFile(), standin::FormatJobs(jobs));
  WakeService();
}

std::vector<std::string> ReportsAmong(const std::vector<std::string>& addresses,
                                      const std::string& appId) {
  std::vector<std::string> reports;
  for (const std::string& address : addresses) {
    const std::size_t state = address.find("&stat=");
    if (state == address.npos || address.find("krsoft=" + appId + "&") == address.npos) continue;
    reports.push_back(address.substr(state + 1, address.find("&fd=") - state - 1));
  }
  return reports;
}

std::vector<std::string> Reports(const std::string& appId) {
  std::vector<std::string> addresses;
  std::istringstream lines(ReadBytes(AccessLog()));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.find(" 200 ");
    if (line.starts_with("GET ") && end != line.npos) addresses.push_back(line.substr(0, end));
  }
  return ReportsAmong(addresses, appId);
}

bool StopService() {
  const auto stop = [] {
    return ::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"Global\\kupdate-standin-stop");
  };
  if (const HANDLE event = stop()) {
    ::SetEvent(event);
    ::CloseHandle(event);
  }
  return Eventually([&] {
    const HANDLE event = stop();  // it goes with the service
    if (event) ::CloseHandle(event);
    return event == nullptr;
  });
}

void EndAllJobs() {
  IBackgroundCopyManager* const manager = NewManager();
  IEnumBackgroundCopyJobs* jobs = nullptr;
  if (manager && SUCCEEDED(manager->EnumJobs(0, &jobs))) {
    IBackgroundCopyJob* job = nullptr;
    while (jobs->Next(1, &job, nullptr) == S_OK) {
      job->Cancel();
      job->Release();
    }
    jobs->Release();
  }
  if (manager) manager->Release();
}

void WakeService() {
  if (IBackgroundCopyManager* const manager = NewManager()) manager->Release();
}

OtherProgramsJobs::OtherProgramsJobs(int count) {
  IBackgroundCopyManager* const manager = NewManager();
  for (int i = 0; manager && i < count; ++i) {
    GUID id = {};
    IBackgroundCopyJob* job = nullptr;
    if (SUCCEEDED(manager->CreateJob(L"other", BG_JOB_TYPE_DOWNLOAD, &id, &job))) {
      jobs_.push_back(job);
    }
  }
  if (manager) manager->Release();
}

OtherProgramsJobs::~OtherProgramsJobs() {
  for (void* const taken : jobs_) {
    auto* const job = static_cast<IBackgroundCopyJob*>(taken);
    job->Cancel();
    job->Release();
  }
}

}  // namespace proof
