// The identifiers in pings: those of the distributor and the user's own.
#include "stat/clids.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "appinfo/app_info.h"
#include "stat/uuid.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"

namespace {

namespace fs = std::filesystem;

std::string Clid1(const std::string& text) { return "<c><clid1>" + text + "</clid1></c>"; }

class Identifiers : public testing::Test {
 protected:
  // What a file of such a name makes of the next answer.
  std::string Clids(const char* file, const std::string& content) const {
    WriteBytes(home_.File(file), content);
    return TClids("app").ReadClids();
  }

  const DataHome home_;
};

}  // namespace

TEST_F(Identifiers, TheFirstFileWithOneCounts) {
  int files = 0;
  // From the last place to the first.
  for (const auto& file : {home_.CommonFile("vendor.xml"), home_.CommonFile("clids-zonie64.xml"),
                           home_.CommonFile("clids-zonie.xml"), home_.File("vendor.xml"),
                           home_.File("clids-zonie64.xml"), home_.File("clids-zonie.xml")}) {
    WriteBytes(file, Clid1(std::to_string(++files)));
    EXPECT_EQ(TClids("zonie").ReadClids(), std::to_string(files));
  }
}

TEST_F(Identifiers, FilesWithoutOneArePassedOver) {
  WriteBytes(home_.File("vendor.xml"), Clid1("next"));
  const std::string odd = "<c><clid1 vid=\"a b\">1&amp;x=\xD1\x8F-._~%</clid1></c>";
  const Table<std::string, std::string> table = {
      {"no XML", "MZ\x90", "next"},
      {"identifier without text", "<c><clid1 vid=\"3\"/><clid2>2</clid2></c>", "next"},
      {"huge", "<c><clid1>1</clid1>" + std::string(2 << 20, ' ') + "</c>", "next"},
      {"cut behind the identifier", "<c><clid1>1</clid1><cl", "next"},
      {"with a sub-identifier", odd, "1&x=\xD1\x8F-._~%-a b"},
      {"empty", "", "next"},
  };
  table.Expect([&](const std::string& content) { return Clids("clids-app.xml", content); });
  WriteBytes(home_.CommonFile("vendor.xml"), odd);
  EXPECT_EQ(Clids("vendor.xml", ""), "1%26x%3D%D1%8F-._~%25-a%20b") << "made by any user";
  WriteBytes(home_.CommonFile("vendor.xml"), Clid1(std::string(85, '+')));
  EXPECT_EQ(TClids("app").ReadClids(), "") << "three characters for each";
}

TEST_F(Identifiers, VendorParam) {
  const fs::path file = home_.File("vendor-specific-urlparam-app.txt");
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
  fs::remove(file);
  fs::create_directories(file);
  EXPECT_EQ(TClids("app").VendorParam(), "vendor-url-retr-failed=yes");
}

TEST_F(Identifiers, MakeTheAddress) {
  const std::string id = "{01234567-89AB-CDEF-0123-456789ABCDEF}";
  WriteBytes(home_.File("ui"), id);
  TAppInfo app("app");
  app.SetVersion(1, 2, 3, 65535);
  app.Write("Platform", "win64");
  const std::string rest = "ui=" + id + "&ver=1.2.3.65535&os=win64";
  const Table<const char*, std::string> table = {
      {"", ""},
      {"file://x/?a", "file://x/?a"},
      {"http://h?", "http://h?krsoft=app&" + rest},
      {"http://h/&a", "http://h/&a&krsoft=app&" + rest},
      {"http://h", "http://h?krsoft=app&" + rest},
  };
  const auto address = [&](const char* report) {
    app.Write("ReportUrl", report);
    return app.GetPingUrl();
  };
  table.Expect(address);
  WriteBytes(home_.File("vendor-specific-urlparam-app.txt"), "?v=#\r\n");
  Clids("clids-app.xml", Clid1("12"));
  EXPECT_EQ(address("http://h"), "http://h?krsoft=app&clid=12&" + rest + "&vnd-params=v=#");
}

TEST_F(Identifiers, AUsersIdIsMadeOnceAndNeverAgain) {
  const LogCapture log;
  const std::string id = TUuid::ReadUniqUserId();
  EXPECT_EQ(id.size(), 38u);
  EXPECT_FALSE(log.Has("E:"));
  EXPECT_EQ(ReadBytes(home_.File("ui")), id);
  EXPECT_EQ(TUuid::ReadUniqUserId(), id);
  WriteBytes(home_.File("ui"), id + "\n");
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  EXPECT_EQ(ReadBytes(home_.File("ui")), id + "\n");
}

TEST_F(Identifiers, AUsersIdThatCannotBeReadOrWrittenIsNotMadeAgain) {
  fs::create_directories(home_.File("ui"));
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  EXPECT_FALSE(TUuid::ProtectValueAlreadyExist());
  const std::string path = home_.File("no-folder").string() + "\\deeper\\ui";
  EXPECT_EQ(TUuid::EnsureUniqUserIdExists(path).size(), 38u);
  EXPECT_EQ(TUuid::EnsureUniqUserIdExists(path), "{none}");
}

#ifndef _WIN32  // where the environment names the folder and the mode of the process
TEST_F(Identifiers, ProtectedModeAndAMissingFolderWriteNothing) {
  setenv("KUPDATE_PROTECTED_MODE", "1", 1);
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  unsetenv("KUPDATE_PROTECTED_MODE");
  EXPECT_FALSE(fs::exists(home_.File("ui")) || TUuid::ProtectValueAlreadyExist());
  const std::string folders = std::getenv("KUPDATE_HOME");
  unsetenv("KUPDATE_HOME");
  EXPECT_EQ(TClids("app").VendorParam(), "");
  setenv("KUPDATE_HOME", folders.c_str(), 1);
}
#endif
