// Usage statistics, from a host's call to the address that carries them.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

// A host that reports to the web server.
struct Reporter {
  std::string appId;
  std::string reportUrl = Publish("report", "ok");

  kupdate_status Start() const {
    return Dll().onApplicationStartup(appId.c_str(), "win64", "", reportUrl.c_str(), 0, 1, 2, 3, 4,
                                      true);
  }
  fs::path File(const char* name) const { return DataFolder() / appId / name; }
  std::string State() const {
    char buffer[32] = "?";
    std::int32_t size = sizeof buffer;
    EXPECT_EQ(Dll().getApplicationState(appId.c_str(), buffer, &size), KUPDATE_S_OK);
    return buffer;
  }
  // Makes the next call send.
  void ForgetPing() const { Dll().forceUpdateCheck(appId.c_str(), false); }
};

// The query of each ping that was handed to the transfer service, without what all have.
std::vector<std::string> Pings(const TransferService& service) {
  static const std::regex url("\"url\":\"[^\"]*report\\?krsoft=([^\"]*)&ui=[^&]*&ver=([^\"]*)\"");
  std::vector<std::string> pings;
  for (const std::string& line : service.Journal()) {
    std::smatch match;
    if (std::regex_search(line, match, url)) pings.push_back(match[1].str() + " " + match[2].str());
  }
  return pings;
}

std::string Today() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return DateText(now.wDay, now.wMonth, now.wYear);
}

}  // namespace

TEST(Statistics, TravelFromTheCallsToTheWebServer) {
  const TransferService service;
  const Reporter host{"travel"};
  Dll().setExecutorPath(L"C:\\none\\exec.exe");
  Dll().setOptionalParam("travel", "tool=1");
  Dll().setUniqueParam("travel", "name", L"Жука \xD83D\xDE00");
  Dll().setUniqueParam("travel", "name", L"last #1");
  EXPECT_EQ(host.Start(), KUPDATE_S_OK);
  const std::string date = "&fd=" + Today();
  // A new application is an install; the day's use behind it says nothing more.
  EXPECT_EQ(Pings(service),
            (std::vector<std::string>{"travel 1.2.3.4&os=win64&stat=install&tool=1&name=last #1" +
                                      date}));
  const std::string program = "\"parameters\":\"C:\\\\none\\\\exec.exe ";
  EXPECT_EQ(service.Count(program + " --stat-callback 0 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":1209600"), 1);
  EXPECT_TRUE(service.WaitFor("\"event\":\"transferred\""));
  EXPECT_TRUE(fs::exists(host.File("in_work_0.xml"))) << "kept until the executor confirms it";
  EXPECT_EQ(host.State(), "dayuse");

  EXPECT_EQ(Dll().usageReport("travel", "x=%20&y"), KUPDATE_S_OK);
  EXPECT_EQ(Pings(service).size(), 1u) << "the next ping is due in a day";
  EXPECT_EQ(ValueOf(host.File("appinfo.xml"), "ShouldPing"), "1");
  host.ForgetPing();
  EXPECT_EQ(Pings(service).at(1), "travel 1.2.3.4&os=win64&stat=dayuse&x=%20&y" + date);
  EXPECT_EQ(service.Count(program + " --stat-callback 1 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":86400"), 1);
}

TEST(Statistics, TheLastPingOfTheLastApplicationLetsTheExecutorGo) {
  Dll().setExecutorPath(L"C:\\only\\leaver.exe");
  std::error_code ignored;
  fs::remove_all(DataFolder(), ignored);  // no other application is registered
  const TransferService service;
  const Reporter host{"leaver"};
  host.Start();
  EXPECT_EQ(Dll().onApplicationUninstall("leaver"), KUPDATE_S_OK);
  const std::string program = "\"parameters\":\"C:\\\\only\\\\leaver.exe ";
  EXPECT_EQ(service.Count(program + " --suicide --stat-callback 1 --appid leaver --job {"), 1);
  const Reporter other{"stayer"};
  other.Start();
  host.Start();
  EXPECT_EQ(Dll().onApplicationUninstall("leaver"), KUPDATE_S_OK);
  EXPECT_EQ(service.Count(program + " --suicide"), 1) << "another application needs it";
  Dll().setExecutorPath(nullptr);
}

TEST(Statistics, WhatCannotBeSentStaysAndArrivesInOrder) {
  const struct {
    const char* control;
    int cancelled;
  } cases[] = {{"fail CreateInstance 0x80070005", 0}, {"fail CreateJob 0x80200049", 0},
               {"fail AddFile 0x80070057", 1},        {"fail SetNotifyCmdLine 0x80070005", 1},
               {"fail Resume 0x80200004", 1},         {"no-job2", 0}};
  const Reporter host{"refused"};
  const std::string base = "refused 1.2.3.4&os=win64&stat=";
  std::string params;
  int count = 0;
  // The first call makes it an install; with these, several blocks wait.
  Dll().setApplicationState("refused", "uninstall");
  Dll().setApplicationState("refused", "install");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.control);
    const TransferService service(c.control);
    const DllLog log;
    const std::string param = "p" + std::to_string(++count) + "=1";
    params += "&" + param;
    Dll().setOptionalParam("refused", param.c_str());
    if (count == 1) host.Start();
    if (count > 1) host.ForgetPing();
    EXPECT_EQ(service.Count("\"call\":\"Cancel\""), c.cancelled);
    EXPECT_FALSE(fs::exists(host.File("in_work_0.xml")));
    EXPECT_NE(ReadBytes(host.File("statistics.xml")).find(param), std::string::npos);
  }
  const TransferService service;
  host.ForgetPing();
  const std::string date = "&fd=" + Today();
  EXPECT_EQ(Pings(service),
            (std::vector<std::string>{base + "install" + params + date, base + "uninstall" + date,
                                      base + "install" + date}));
}

TEST(Statistics, AnAddressThatIsTooLongKeepsNoProgramFromUpdating) {
  const TransferService service;
  const DllLog log;
  const std::string longUrl = HttpUrl("r?") + std::string(1100, 'a');
  const std::string feed = Publish("long.rss", "<rss/>");
  Dll().onApplicationStartup("long", "win64", feed.c_str(), longUrl.c_str(), 0, 1, 0, 0, 0, true);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1) << "the check";
  EXPECT_TRUE(log.Has("D:TUpdaterController::OnApplicationStartup: Unhandled exception."));
}

TEST(Statistics, GettersAndWrongWords) {
  const Reporter host{"words"};
  EXPECT_EQ(host.State(), "install") << "the first call made the application known";
  const DllLog log;
  EXPECT_EQ(Dll().setApplicationState("words", "Uninstall"), KUPDATE_S_OK);
  EXPECT_TRUE(log.Has("D:TUpdaterController::SetApplicationState: Unhandled exception."));
  EXPECT_EQ(Dll().setApplicationState("words", nullptr), KUPDATE_S_OK);
  EXPECT_EQ(Dll().usageReport("words", nullptr), KUPDATE_S_OK);
  EXPECT_EQ(host.State(), "install");
  EXPECT_EQ(Dll().setApplicationState("words", "uninstall"), KUPDATE_S_OK);
  EXPECT_EQ(host.State(), "uninstall");

  char param[16] = "?";
  std::int32_t size = sizeof param;
  Dll().setOptionalParam("words", "a=\"<&>'");
  EXPECT_EQ(Dll().getOptionalParam("words", param, &size), KUPDATE_S_OK);
  EXPECT_STREQ(param, "a=\"<&>'");

  wchar_t value[8] = L"?";
  std::int32_t chars = 4;
  Dll().setUniqueParam("words", "key", L"Ж=\xD83D\xDE00 7");
  EXPECT_EQ(Dll().getUniqueParam("words", "key", value, &chars), KUPDATE_S_OK);
  EXPECT_EQ(chars, 7);
  EXPECT_EQ(value[0], 0);
  EXPECT_EQ(Dll().getUniqueParam("words", "key", value, &chars), KUPDATE_S_OK);
  EXPECT_STREQ(value, L"Ж=\xD83D\xDE00 7");
  EXPECT_EQ(Dll().getUniqueParam("words", "none", value, &chars), KUPDATE_S_OK);
  EXPECT_STREQ(value, L"");
}

TEST(Statistics, EightProcessesLoseNothing) {
  std::vector<void*> children;
  for (int i = 0; i < 8; ++i) children.push_back(StartChild(L"report " + std::to_wstring(i)));
  for (void* child : children) EXPECT_EQ(EndOf(child), 0u);
  const std::string text = ReadBytes(DataFolder() / "crowd" / "statistics.xml");
  for (int i = 0; i < 8; ++i) {
    for (int n = 0; n < 20; ++n) {
      const std::string param = ">p" + std::to_string(i) + "=" + std::to_string(n) + "<";
      EXPECT_NE(text.find(param), std::string::npos) << param;
    }
  }
  EXPECT_NE(text.find("ord=\"160\""), std::string::npos) << "none came twice, none is missing";
  EXPECT_EQ(text.find("ord=\"161\""), std::string::npos);
}

TEST(UniqueUserId, IsMadeOnce) {
  const std::string id = Dll().getUniqUserId();
  EXPECT_TRUE(std::regex_match(id, std::regex("\\{[0-9A-F-]{36}\\}"))) << id;
  EXPECT_EQ(Dll().getUniqUserId(), id);
  const fs::path file = RoamingFolder().parent_path() / "ui";
  EXPECT_EQ(ReadBytes(file), id);
  fs::rename(file, file.wstring() + L".away");
  EXPECT_EQ(Dll().getUniqUserId(), std::string("{none}"));
  fs::rename(file.wstring() + L".away", file);
  EXPECT_EQ(Dll().getUniqUserId(), id);
}
