#include "executor/executor_test_client.h"

#include "util/win/windows_lean.h"

#include <regex>

#include "layout/command_line.h"
#include "layout/names.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

// Behind its unquoted path.
unsigned Run(const std::wstring& arguments, HANDLE output) {
  const std::wstring program = ExecutorProgram();
  return EndOf(StartProgram(program, program + L" " + arguments, output));
}

int copies = 0;

}  // namespace

std::wstring ExecutorProgram() {
  return ProcessTempFolder() / ("program copy " + std::to_string(copies)) / "kupdate-exec.exe";
}

ExecutorTest::ExecutorTest() {
  ++copies;
  const fs::path program = ExecutorProgram();
  fs::create_directories(program.parent_path());
  fs::copy_file(Setting(L"KUPDATE_EXEC"), program);
}

unsigned RunExecutor(const std::wstring& arguments) { return Run(arguments, nullptr); }

std::string OutputOf(const std::wstring& arguments) {
  const fs::path file = ProcessTempFolder() / "output.txt";
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  const HANDLE output = ::CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  Run(arguments, output);
  ::CloseHandle(output);
  return ReadBytes(file);
}

ExecutorTest::~ExecutorTest() {
  EXPECT_TRUE(Eventually([&] {
    return service_.Count("\"event\":\"notify\"") <=
           service_.Count("\"event\":\"notify_exit\"") + service_.Count("\"event\":\"problem\"");
  }));
}

ResultEvent::ResultEvent(const std::string& appId)
    : event_(::CreateEventW(nullptr, FALSE, FALSE, ResultEventName(appId).c_str())) {}
ResultEvent::~ResultEvent() { ::CloseHandle(event_); }
bool ResultEvent::IsSignalled() const { return ::WaitForSingleObject(event_, 0) == WAIT_OBJECT_0; }

Host::Host(std::string id) : appId(std::move(id)) {
  // The library notes a path in the record of the application that called it last: let it be this.
  std::int32_t size = 0;
  Dll().getLocale(appId.c_str(), nullptr, &size);
  UseExecutor(L"C:\\none\\kupdate-exec.exe");
}

void Host::UseExecutor(const std::wstring& path) { Dll().setExecutorPath(path.c_str()); }

void Host::Start() const {
  EXPECT_EQ(Dll().onApplicationStartup(appId.c_str(), "win64", feedUrl.c_str(), reportUrl.c_str(),
                                       3600, 1, 0, 0, 0, true),
            KUPDATE_S_OK);
}

void Host::Uninstall() const {
  EXPECT_EQ(Dll().onApplicationUninstall(appId.c_str()), KUPDATE_S_OK);
}

fs::path Host::File(std::string_view name) const {
  return DataFolder() / WidenUtf8(appId) / std::string(name);
}

std::string Host::Record(const std::string& key) const { return ValueOf(File("appinfo.xml"), key); }

std::wstring ArgumentsOfNewestJob(const TransferService& service) {
  static const std::regex notice(
      "\"event\":\"notify\",.*kupdate-exec\\.exe ((?:[^\"\\\\]|\\\\.)*)\"");
  EXPECT_TRUE(service.WaitFor("\"event\":\"notify\"", service.Count("\"call\":\"CreateJob\"")));
  std::string arguments;
  for (const std::string& line : service.Journal()) {
    std::smatch match;
    if (std::regex_search(line, match, notice)) arguments = match[1];
  }
  return WidenUtf8(std::regex_replace(arguments, std::regex("\\\\(.)"), "$1"));
}
