#include "stat/uuid.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "testing/log_capture.h"
#include "testing/maker_home.h"

TEST(TUuid, MadeOnceAndNeverAgain) {
  const MakerHome home;
  const LogCapture capture;
  const std::string id = TUuid::ReadUniqUserId();
  EXPECT_EQ(id.size(), 38u);
  for (const std::string& line : capture.Lines()) EXPECT_FALSE(line.starts_with("E:")) << line;
  EXPECT_EQ(ReadBytes(home.File("ui")), id);
  EXPECT_EQ(TUuid::ReadUniqUserId(), id);
  WriteBytes(home.File("ui"), id + "\n");
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  EXPECT_EQ(ReadBytes(home.File("ui")), id + "\n");
}

TEST(TUuid, AFileThatCannotBeReadIsLeftAlone) {
  const MakerHome home;
  std::filesystem::create_directories(home.File("ui"));
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  EXPECT_FALSE(TUuid::ProtectValueAlreadyExist());
}

TEST(TUuid, AnIdThatCannotBeWrittenIsNotMadeAgain) {
  const MakerHome home;
  const std::string path = home.File("no-folder").string() + "\\deeper\\ui";
  EXPECT_EQ(TUuid::EnsureUniqUserIdExists(path).size(), 38u);
  EXPECT_EQ(TUuid::EnsureUniqUserIdExists(path), "{none}");
}

#ifndef _WIN32  // where the environment says whether the process is in protected mode
TEST(TUuid, ProtectedModeWritesNothing) {
  const MakerHome home;
  setenv("KUPDATE_PROTECTED_MODE", "1", 1);
  EXPECT_EQ(TUuid::ReadUniqUserId(), "{none}");
  unsetenv("KUPDATE_PROTECTED_MODE");
  EXPECT_FALSE(std::filesystem::exists(home.File("ui")));
  EXPECT_FALSE(TUuid::ProtectValueAlreadyExist());
}
#endif
