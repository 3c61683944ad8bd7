#include "install/update_offer.h"

#include <gtest/gtest.h>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"

TEST(UpdateOffer, AddressesThatAreFetched) {
  for (const char* good : {"https://example.com/a.exe", "http://[::1]/a.exe",
                           "HTTPS://example.com:8443/a%20b.exe?x=1&y"}) {
    EXPECT_TRUE(IsFetched(good)) << good;
  }
  for (const std::string& bad :
       {std::string("https://"), std::string("https://\\\\server\\a.exe"),
        std::string("file:///C:/a.exe"), std::string("https://example.com/a b.exe"),
        std::string("https://example.com/\r\nX: y"), std::string("https://e.com@evil.org/a.exe"),
        std::string("https://example.com/a.exe#b"), std::string("https://ex\xC3\xA4mple.com/a"),
        "https://e/" + std::string(kMaxAddressBytes, 'x')}) {
    EXPECT_FALSE(IsFetched(bad)) << bad;
  }
}

TEST(UpdateOffer, Redirections) {
  using Step = std::pair<const char*, const char*>;  // the address and where it redirects to
  const Table<Step, std::string> table = {
      {{"https://a.com/x/y", "https://b.com/z"}, "https://b.com/z"},
      {{"https://a.com:1/x?y", "/z?q"}, "https://a.com:1/z?q"},
      {{"https://a.com", "/z"}, "https://a.com/z"},
      {{"https://a.com?q", "/z"}, "https://a.com/z"},
      {{"https://a.com/x", "//b.com/z"}, "https://b.com/z"},
      {{"https://a.com/x", "z"}, ""},
      {{"https://a.com/x", "/a b"}, ""},
  };
  table.Expect([](const Step& step) { return RedirectedAddress(step.first, step.second); });
}

TEST(UpdateOffer, OnlyAHigherVersionOfARegisteredApplication) {
  LocalRecord record{MakeVersion(1, 65535, 65535, 65535), "win", "", true, false};
  const auto mayUpdate = [&](const std::optional<LocalRecord>& known, const char* line) {
    const LogCapture log;
    const bool may = MayUpdate(known, MakeVersion(2, 0, 0, 1));
    EXPECT_TRUE(log.Has(line));
    return may;
  };
  EXPECT_TRUE(mayUpdate(record, ""));
  EXPECT_FALSE(mayUpdate({}, "The application is not registered."));
  record.removed = true;
  EXPECT_FALSE(mayUpdate(record, "The application is removed."));
  record = {MakeVersion(2, 0, 0, 1), "win", ""};
  EXPECT_FALSE(mayUpdate(record, "version 2.0.0.1 is not above the application's, 2.0.0.1"));
}

TEST(UpdateOffer, ArgumentsAreThoseOfTheStarter) {
  const DataHome home;
  const auto record = home.AppFolder("app") / "updinfo.xml";
  WriteBytes(record, "<appinfo><VerMajor>2</VerMajor><DistroUrl>https");
  EXPECT_FALSE(ReadOffer("app"));
  WriteBytes(record,
             "<appinfo><VerMajor>2</VerMajor><DistroUrl>https://e/a</DistroUrl>"
             "<DistroArgs>/S</DistroArgs><MSIArgs>/qn</MSIArgs><DistroStarter>MSI</DistroStarter>"
             "<DistroSize>-5</DistroSize><UACDlg>1</UACDlg></appinfo>");
  const auto offer = ReadOffer("app");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->args, "/qn");
  EXPECT_EQ(offer->size, 0u);
  EXPECT_TRUE(offer->mayElevate);
}
