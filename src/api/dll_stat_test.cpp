// Usage statistics, from a host's call to the address that carries them.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <regex>

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

using Texts = std::vector<std::string>;

fs::path File(const char* appId, const char* name) { return DataFolder() / appId / name; }

// A host that reports to the web server.
void Start(const char* appId) {
  const std::string url = Publish("report", "ok");
  EXPECT_EQ(Dll().onApplicationStartup(appId, "win64", "", url.c_str(), 0, 1, 2, 3, 4, true),
            KUPDATE_S_OK);
}

// The query of each ping that was handed to the transfer service, without what all have.
Texts Pings(const TransferService& service) {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  const std::string today = DateText(now.wDay, now.wMonth, now.wYear);
  const std::regex url(
      "\"url\":\"[^\"]*report\\?krsoft=([^\"]*)&ui=[^&]*&ver=1.2.3.4&os=win64(&[^\"]*)&fd=" +
      today + "\"");
  Texts pings;
  for (const std::string& line : service.Journal()) {
    std::smatch match;
    if (std::regex_search(line, match, url)) pings.push_back(match[1].str() + match[2].str());
  }
  return pings;
}

}  // namespace

TEST(Statistics, TravelFromTheCallsToTheWebServer) {
  const TransferService service;
  const std::string program = R"("parameters":"C:\\none\\exec.exe )";
  Dll().setExecutorPath(L"C:\\none\\exec.exe");
  Dll().setOptionalParam("travel", "tool=1");
  Dll().setUniqueParam("travel", "name", L"Жука \xD83D\xDE00");
  Dll().setUniqueParam("travel", "name", L"last #1");
  Start("travel");
  // A new application is an install; the day's use behind it says nothing more.
  EXPECT_EQ(Pings(service), (Texts{"travel&stat=install&tool=1&name=last #1"}));
  EXPECT_EQ(service.Count(program + " --stat-callback 0 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":1209600"), 1);
  EXPECT_TRUE(service.WaitFor("\"event\":\"transferred\""));
  EXPECT_TRUE(fs::exists(File("travel", "in_work_0.xml"))) << "until the executor confirms it";
  EXPECT_EQ(TextFrom(Dll().getApplicationState, "travel"), "dayuse");

  EXPECT_EQ(Dll().usageReport("travel", "x=%20&y"), KUPDATE_S_OK);
  EXPECT_EQ(Pings(service).size(), 1u) << "the next ping is due in a day";
  EXPECT_EQ(ValueOf(File("travel", "appinfo.xml"), "ShouldPing"), "1");
  Dll().forceUpdateCheck("travel", false);
  EXPECT_EQ(Pings(service).at(1), "travel&stat=dayuse&x=%20&y");
  EXPECT_EQ(service.Count(program + " --stat-callback 1 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":86400"), 1);
}

TEST(Statistics, WhatCannotBeSentStaysAndArrivesInOrder) {
  std::string params;
  // The first call makes it an install; with these, several blocks wait.
  Dll().setApplicationState("refused", "uninstall");
  Dll().setApplicationState("refused", "install");
  for (const char* const fault :
       {"fail CreateInstance 0x80070005", "fail CreateJob 0x80200049", "no-job2"}) {
    SCOPED_TRACE(fault);
    const TransferService service(fault);
    const std::string param = "p" + std::to_string(params.size()) + "=1";
    params += "&" + param;
    Dll().setOptionalParam("refused", param.c_str());
    Start("refused");
    Dll().forceUpdateCheck("refused", false);
    EXPECT_FALSE(fs::exists(File("refused", "in_work_0.xml")));
    EXPECT_NE(ReadBytes(File("refused", "statistics.xml")).find(param), std::string::npos);
  }
  const TransferService service;
  Dll().forceUpdateCheck("refused", false);
  EXPECT_EQ(Pings(service), (Texts{"refused&stat=install" + params, "refused&stat=uninstall",
                                   "refused&stat=install"}));
}

TEST(Statistics, AnAddressThatIsTooLongKeepsNoProgramFromUpdating) {
  const TransferService service;
  const DllLog log;
  const std::string longUrl = HttpUrl("r?") + std::string(1100, 'a');
  const std::string feed = HttpUrl("long.rss");
  Dll().onApplicationStartup("long", "win64", feed.c_str(), longUrl.c_str(), 0, 1, 0, 0, 0, true);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1) << "the check";
  EXPECT_TRUE(log.Has("D:TUpdaterController::OnApplicationStartup: Unhandled exception."));
}

TEST(Statistics, GettersAndWrongWords) {
  EXPECT_EQ(TextFrom(Dll().getApplicationState, "words"), "install")
      << "the first call made the application known";
  const DllLog log;
  EXPECT_EQ(Dll().setApplicationState("words", "Uninstall"), KUPDATE_S_OK);
  EXPECT_TRUE(log.Has("D:TUpdaterController::SetApplicationState: Unhandled exception."));
  EXPECT_EQ(TextFrom(Dll().getApplicationState, "words"), "install");
  EXPECT_EQ(Dll().setApplicationState("words", "uninstall"), KUPDATE_S_OK);
  EXPECT_EQ(TextFrom(Dll().getApplicationState, "words"), "uninstall");

  Dll().setOptionalParam("words", "a=\"<&>'");
  EXPECT_EQ(TextFrom(Dll().getOptionalParam, "words"), "a=\"<&>'");

  wchar_t value[8] = L"?";
  std::int32_t chars = 4;
  Dll().setUniqueParam("words", "key", L"Ж=\xD83D\xDE00 7");
  EXPECT_EQ(Dll().getUniqueParam("words", "key", value, &chars), KUPDATE_S_OK);
  EXPECT_EQ(chars, 7);
  EXPECT_STREQ(value, L"");
  EXPECT_EQ(Dll().getUniqueParam("words", "key", value, &chars), KUPDATE_S_OK);
  EXPECT_STREQ(value, L"Ж=\xD83D\xDE00 7");
  EXPECT_EQ(Dll().getUniqueParam("words", "none", value, &chars), KUPDATE_S_OK);
  EXPECT_STREQ(value, L"");
}

TEST(Statistics, TheUsersIdIsTheOneOfTheFile) {
  EXPECT_EQ(Dll().getUniqUserId(), ReadBytes(RoamingFolder().parent_path() / "ui"));
  EXPECT_EQ(std::string(Dll().getUniqUserId()).size(), 38u);
}
