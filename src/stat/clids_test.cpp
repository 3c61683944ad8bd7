#include "stat/clids.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "appinfo/app_info.h"
#include "testing/maker_home.h"
#include "testing/table.h"

namespace {

std::string Clid1(const std::string& text) { return "<c><clid1>" + text + "</clid1></c>"; }

}  // namespace

TEST(TClids, TheFirstFileWithAnIdentifierCounts) {
  // The files of a folder in the order in which they are looked into.
  const std::vector<std::string> cases[] = {
      {"app", "clids-app.xml", "vendor.xml"},
      {"zonie", "clids-zonie.xml", "clids-zonie64.xml", "vendor.xml"},
  };
  for (const auto& c : cases) {
    const MakerHome home;
    int files = 0;
    const auto isFoundFirst = [&](const std::filesystem::path& file) {
      const std::string id = std::to_string(++files);
      WriteBytes(file, Clid1(id));
      EXPECT_EQ(TClids(c[0]).ReadClids(), id);
    };
    for (auto name = c.rbegin(); name != c.rend() - 1; ++name) isFoundFirst(home.CommonFile(*name));
    for (auto name = c.rbegin(); name != c.rend() - 1; ++name) isFoundFirst(home.File(*name));
  }
}

TEST(TClids, FilesWithoutAnIdentifierArePassedOver) {
  const MakerHome home;
  WriteBytes(home.File("vendor.xml"), Clid1("next"));
  const Table<std::string, std::string> table = {
      {"no XML", "MZ\x90", "next"},
      {"identifier without text", "<c><clid1 vid=\"3\"/><clid2>2</clid2></c>", "next"},
      {"huge", "<c><clid1>1</clid1>" + std::string(2 << 20, ' ') + "</c>", "next"},
      {"cut behind the identifier", "<c><clid1>1</clid1><cl", "next"},
      {"with a sub-identifier", "<c><clid1 vid=\"3\">1</clid1></c>", "1-3"},
  };
  table.Expect([&](const std::string& content) {
    WriteBytes(home.File("clids-app.xml"), content);
    return TClids("app").ReadClids();
  });
  const std::string odd = "<c><clid1 vid=\"a b\">1&amp;x=\xD1\x8F-._~%</clid1></c>";
  WriteBytes(home.File("clids-app.xml"), odd);
  EXPECT_EQ(TClids("app").ReadClids(), "1&x=\xD1\x8F-._~%-a b");
  WriteBytes(home.File("clids-app.xml"), "");
  WriteBytes(home.File("vendor.xml"), "");
  WriteBytes(home.CommonFile("vendor.xml"), odd);
  EXPECT_EQ(TClids("app").ReadClids(), "1%26x%3D%D1%8F-._~%25-a%20b") << "made by any user";
  WriteBytes(home.CommonFile("vendor.xml"), Clid1(std::string(85, '+')));
  EXPECT_EQ(TClids("app").ReadClids(), "") << "three characters for each";
}

TEST(TClids, VendorParam) {
  const MakerHome home;
  const std::filesystem::path file = home.File("vendor-specific-urlparam-app.txt");
  EXPECT_EQ(TClids("app").VendorParam(), "");
  const Table<std::string, std::string> table = {
      {"only one mark goes", "?&a=1", "&a=1"},
      {"line breaks behind", "&a=1\r\n\r", "a=1"},
      {"254 characters", std::string(254, 'x'), std::string(254, 'x')},
      {"254 and a line break", std::string(254, 'x') + "\n", ""},
  };
  table.Expect([&](const std::string& content) {
    WriteBytes(file, content);
    return TClids("app").VendorParam();
  });
  std::filesystem::remove(file);
  std::filesystem::create_directories(file);
  EXPECT_EQ(TClids("app").VendorParam(), "vendor-url-retr-failed=yes");
#ifndef _WIN32  // where the environment says where the folder is
  const std::string folders = std::getenv("KUPDATE_HOME");
  unsetenv("KUPDATE_HOME");
  EXPECT_EQ(TClids("app").VendorParam(), "") << "there is no folder";
  setenv("KUPDATE_HOME", folders.c_str(), 1);
#endif
}

TEST(TAppInfo, GetPingUrl) {
  const MakerHome home;
  const std::string id = "{01234567-89AB-CDEF-0123-456789ABCDEF}";
  WriteBytes(home.File("ui"), id);
  TAppInfo app("app");
  app.SetVersion(1, 2, 3, 65535);
  app.Write("Platform", "win64");
  const std::string info = "krsoft=app&ui=" + id + "&ver=1.2.3.65535&os=win64";
  const Table<const char*, std::string> table = {
      {"", ""},
      {"file://x/?a", "file://x/?a"},
      {"http://h?", "http://h?" + info},
      {"http://h/&a", "http://h/&a&" + info},
      {"http://h", "http://h?" + info},
  };
  table.Expect([&](const char* report) {
    app.Write("ReportUrl", report);
    return app.GetPingUrl();
  });
  WriteBytes(home.File("clids-app.xml"), Clid1("12"));
  WriteBytes(home.File("vendor-specific-urlparam-app.txt"), "?v=#\r\n");
  EXPECT_EQ(app.GetPingUrl(),
            "http://h?krsoft=app&clid=12&ui=" + id + "&ver=1.2.3.65535&os=win64&vnd-params=v=#");
}
