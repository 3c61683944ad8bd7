// Usage statistics, from a host's call to the address that carries them.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

// Of the address of a ping: the version and all behind it.
std::string Reported(const std::string& query) {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return "&ver=1.2.3.4&os=win64&" + query + "&fd=" + DateText(now.wDay, now.wMonth, now.wYear) +
         "\"";
}

}  // namespace

TEST(Statistics, TravelFromTheCallsToTheWebServer) {
  const TransferService service;
  const fs::path folder = DataFolder() / "travel";
  const std::string program = R"("parameters":"C:\\none\\exec.exe )";
  Dll().setExecutorPath(L"C:\\none\\exec.exe");
  Dll().setOptionalParam("travel", "tool=1");
  Dll().setUniqueParam("travel", "name", L"last #1");
  const std::string url = HttpUrl("report");
  Dll().onApplicationStartup("travel", "win64", "", url.c_str(), 0, 1, 2, 3, 4, true);
  // A new application is an install; the day's use behind it says nothing more.
  EXPECT_EQ(service.Count(Reported("stat=install&tool=1&name=last #1")), 1);
  EXPECT_EQ(service.Count(program + " --stat-callback 0 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":1209600"), 1);
  EXPECT_TRUE(fs::exists(folder / "in_work_0.xml")) << "until the executor confirms it";
  EXPECT_EQ(TextFrom(Dll().getApplicationState, "travel"), "dayuse");

  EXPECT_EQ(Dll().usageReport("travel", "x=%20&y"), KUPDATE_S_OK);
  EXPECT_EQ(service.Count("\"call\":\"CreateJob\""), 1) << "the next ping is due in a day";
  EXPECT_EQ(ValueOf(folder / "appinfo.xml", "ShouldPing"), "1");
  Dll().forceUpdateCheck("travel", false);
  EXPECT_EQ(service.Count(Reported("stat=dayuse&x=%20&y")), 1);
  EXPECT_EQ(service.Count(program + " --stat-callback 1 --appid travel --job {"), 1);
  EXPECT_EQ(service.Count("\"seconds\":86400"), 1);
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
