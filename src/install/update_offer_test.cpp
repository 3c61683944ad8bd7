#include "install/update_offer.h"

#include <gtest/gtest.h>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"

namespace {

TEST(UpdateOffer, AddressesThatAreFetched) {
  const Table<std::string, bool> table = {
      {"https://example.com/a.exe", true},
      {"HTTPS://example.com:8443/a%20b.exe?x=1&y", true},
      {"http://[::1]/a.exe", true},
      {"https://", false},
      {"https://\\\\server\\a.exe", false},
      {"file:///C:/a.exe", false},
      {"https://example.com/a b.exe", false},
      {"https://example.com/\r\nX: y", false},
      {"https://example.com@evil.org/a.exe", false},
      {"https://example.com/a.exe#b", false},
      {"https://ex\xC3\xA4mple.com/a.exe", false},
      {"https://e/" + std::string(kMaxAddressBytes, 'x'), false},
  };
  table.Expect(IsFetched);
}

TEST(UpdateOffer, Redirections) {
  const struct {
    const char *from, *location, *want;
  } rows[] = {
      {"https://a.com/x/y", "https://b.com/z", "https://b.com/z"},
      {"https://a.com:1/x?y", "/z?q", "https://a.com:1/z?q"},
      {"https://a.com", "/z", "https://a.com/z"},
      {"https://a.com?q", "/z", "https://a.com/z"},
      {"https://a.com/x", "//b.com/z", "https://b.com/z"},
      {"https://a.com/x", "z", ""},
      {"https://a.com/x", "/a b", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(RedirectedAddress(row.from, row.location), row.want) << row.location;
  }
}

TEST(UpdateOffer, OnlyAHigherVersionOfARegisteredApplication) {
  const auto record = [](VersionNumber version, bool removed = false) {
    return LocalRecord{version, "win", "", true, removed};
  };
  const struct {
    const char* label;
    std::optional<LocalRecord> record;
    std::string want;
  } rows[] = {
      {"higher", record(MakeVersion(1, 65535, 65535, 65535)), ""},
      {"the same", record(MakeVersion(2, 0, 0, 1)),
       "The update's version 2.0.0.1 is not above the application's, 2.0.0.1"},
      {"removed", record(0, true), "The application is removed."},
      {"no record", {}, "The application is not registered."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const LogCapture log;
    EXPECT_EQ(MayUpdate(row.record, MakeVersion(2, 0, 0, 1)), row.want.empty());
    EXPECT_TRUE(row.want.empty() || log.Has("E:MayUpdate: " + row.want));
  }
}

TEST(UpdateOffer, ArgumentsAreThoseOfTheStarter) {
  const DataHome home;
  const LogCapture log;
  const auto folder = home.AppFolder("app");
  WriteBytes(folder / "updinfo.xml", "<appinfo><VerMajor>2</VerMajor><DistroUrl>https");
  EXPECT_FALSE(ReadOffer("app"));
  EXPECT_TRUE(log.Has("E:ReadOffer: No update is recorded."));
  WriteBytes(folder / "updinfo.xml",
             "<appinfo><VerMajor>2</VerMajor><DistroUrl>https://e/a</DistroUrl>"
             "<DistroArgs>/S</DistroArgs><MSIArgs>/qn</MSIArgs><DistroStarter>MSI</DistroStarter>"
             "<DistroSize>-5</DistroSize><UACDlg>1</UACDlg></appinfo>");
  const auto offer = ReadOffer("app");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->version, MakeVersion(2, 0, 0, 0));
  EXPECT_EQ(offer->starter, Starter::kMsi);
  EXPECT_EQ(offer->args, "/qn");
  EXPECT_EQ(offer->size, 0u);
  EXPECT_TRUE(offer->mayElevate);
  EXPECT_EQ(ParseStarter("bat"), Starter::kUnknown);
  EXPECT_EQ(ParseStarter(""), Starter::kProgram);
}

}  // namespace
