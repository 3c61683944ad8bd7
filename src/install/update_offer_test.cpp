#include "install/update_offer.h"

#include <gtest/gtest.h>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"

namespace {

TEST(UpdateOffer, AddressesThatAreFetched) {
  const Table<std::string, AddressKind> table = {
      {"https://example.com/a.exe", AddressKind::kHttps},
      {"HTTPS://example.com:8443/a%20b.exe?x=1&y", AddressKind::kHttps},
      {"http://[::1]/a.exe", AddressKind::kHttp},
      {"https://", AddressKind::kRefused},
      {"https://\\\\server\\a.exe", AddressKind::kRefused},
      {"file:///C:/a.exe", AddressKind::kRefused},
      {"https://example.com/a b.exe", AddressKind::kRefused},
      {"https://example.com/\r\nX: y", AddressKind::kRefused},
      {"https://example.com@evil.org/a.exe", AddressKind::kRefused},
      {"https://example.com/a.exe#b", AddressKind::kRefused},
      {"https://ex\xC3\xA4mple.com/a.exe", AddressKind::kRefused},
      {"https://e/" + std::string(kMaxAddressBytes, 'x'), AddressKind::kRefused},
  };
  table.Expect(KindOfAddress);
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

TEST(UpdateOffer, PlainSwitchesNameNothing) {
  for (const char* args : {"", "/S", "/S  --mode=quiet -n_1,2.5 "}) {
    EXPECT_TRUE(ArePlainSwitches(args)) << args;
  }
  for (const char* args : {"S", "/S a", "/D=C:\\x", "/log:x", "/S //host", "TRANSFORMS=x", "/a/b",
                           "/S \"x\"", "/S\t", "/\xD0\x96"}) {
    EXPECT_FALSE(ArePlainSwitches(args)) << args;
  }
  EXPECT_FALSE(ArePlainSwitches("/" + std::string(kMaxArgsBytes, 'x')));
}

constexpr char kNotInstalled[] = "E:ReadOffer: The application is not installed.";
constexpr char kNotRecorded[] = "E:ReadOffer: No update is recorded.";

TEST(UpdateOffer, OnlyAHigherVersionOfAnInstalledApplication) {
  const std::string url = "<DistroUrl>https://e/a.exe</DistroUrl>";
  const auto version = [](const char* major, const char* build) {
    return std::string("<VerMajor>") + major + "</VerMajor><VerBuild>" + build + "</VerBuild>";
  };
  const struct {
    const char* label;
    std::string app, update, want;
  } rows[] = {
      {"higher", version("1", "65535"), url + version("2", "0"), ""},
      {"the same", version("2", "1"), url + version("2", "1"),
       "E:ReadOffer: The update's version 2.0.0.1 is not above the installed one, 2.0.0.1"},
      {"cut file", version("1", "0"), "<DistroUrl>https", kNotRecorded},
      {"removed", version("1", "0") + "<Remove>1</Remove>", url + version("2", "0"), kNotInstalled},
      {"no record", "", url + version("2", "0"), kNotInstalled},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const DataHome home;
    const LogCapture log;
    const auto folder = home.AppFolder("app");
    WriteBytes(folder / "appinfo.xml", "<appinfo>" + row.app + "</appinfo>");
    WriteBytes(folder / "updinfo.xml", "<appinfo>" + row.update + "</appinfo>");
    EXPECT_EQ(ReadOffer("app").has_value(), row.want.empty());
    EXPECT_TRUE(row.want.empty() || log.Has(row.want));
  }
}

TEST(UpdateOffer, ArgumentsAreThoseOfTheStarter) {
  const DataHome home;
  const auto folder = home.AppFolder("app");
  WriteBytes(folder / "appinfo.xml", "<appinfo><VerMajor>1</VerMajor></appinfo>");
  WriteBytes(folder / "updinfo.xml",
             "<appinfo><VerMajor>2</VerMajor><DistroUrl>https://e/a</DistroUrl>"
             "<DistroArgs>/S</DistroArgs><MSIArgs>/qn</MSIArgs><DistroStarter>MSI</DistroStarter>"
             "<DistroSize>-5</DistroSize><UACDlg>1</UACDlg></appinfo>");
  const auto offer = ReadOffer("app");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->starter, Starter::kMsi);
  EXPECT_EQ(offer->args, "/qn");
  EXPECT_EQ(offer->size, 0u);
  EXPECT_TRUE(offer->mayElevate);
  EXPECT_EQ(ParseStarter("bat"), Starter::kUnknown);
  EXPECT_EQ(ParseStarter(""), Starter::kProgram);
}

}  // namespace
