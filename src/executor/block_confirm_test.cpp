#include "executor/block_confirm.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "layout/file_names.h"
#include "stat/stat_holder.h"
#include "testing/data_home.h"
#include "testing/fake_locker.h"
#include "testing/table.h"
#include "util/text.h"

namespace {

class BlockConfirm : public testing::Test {
 protected:
  std::filesystem::path Path(const char* name) const { return home_.AppFolder("app") / name; }
  std::string File(const char* name) const { return NarrowUtf8(Path(name).wstring()); }

  void PutBlock(const std::string& date) const {
    TStatHolder block;
    block.AddState(AppState::kDayuse);
    block.AddOptionalParam("a=1");
    block.SetFirstDate(date);
    block.Save(File("in_work_3.xml"));
  }

  void PutStatistics(const std::string& date) const {
    TStatHolder statistics;
    statistics.AddState(AppState::kUninstall);
    statistics.SetFirstDate(date);
    statistics.SetConfirmed(true);
    statistics.Save(File("statistics.xml"));
  }

  // What is on disk: the confirmed first day, and whether the block is still there.
  std::string Left() const {
    TStatHolder statistics;
    statistics.Load(File("statistics.xml"));
    return (statistics.Confirmed() ? statistics.GetFirstDate(AppState::kDayuse) : "none") +
           (std::filesystem::exists(Path("in_work_3.xml")) ? ", in work" : "");
  }

  DataHome home_;
};

}  // namespace

TEST_F(BlockConfirm, KeepsTheFirstDayThatWasConfirmed) {
  const struct {
    const char* label;
    const char* confirmed;  // before; empty: nothing is
    const char* date;       // of the block
    const char* want;
  } cases[] = {
      {"first block", "", "05.03.2011", "05.03.2011"},
      {"later block", "05.03.2011", "06.03.2011", "05.03.2011"},
      {"block without a day", "", "", "none"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    PutStatistics(c.confirmed);
    PutBlock(c.date);
    EXPECT_EQ(ConfirmBlock("app", 3, nullptr), AppState::kDayuse);
    EXPECT_EQ(ConfirmBlock("app", 3, nullptr), std::nullopt) << "it is gone";
    EXPECT_EQ(Left(), c.want);
    TStatHolder statistics;
    statistics.Load(File("statistics.xml"));
    EXPECT_TRUE(statistics.HasStates()) << "what waits is left alone";
  }
}

TEST_F(BlockConfirm, LeavesTheBlockWhenAnythingIsRefused) {
  PutBlock("05.03.2011");
  RefusingLocker refusing;
  EXPECT_EQ(ConfirmBlock("app", 3, &refusing), std::nullopt);
  EXPECT_EQ(Left(), "none, in work");
  std::filesystem::create_directory(Path("statistics.xml"));  // a file that cannot be read
  EXPECT_EQ(ConfirmBlock("app", 3, nullptr), std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(Path("in_work_3.xml")));
}

TEST(BlockIdOfFile, KnowsItsFilesByName) {
  const Table<std::string, std::optional<int>> table = {
      {"in_work_0.xml", 0},   {"in_work_100.xml", 100}, {"in_work_101.xml", {}},
      {"in_work_-1.xml", {}}, {"in_work_07.xml", {}},   {"in_work_7.xml.new", {}}};
  table.Expect(BlockIdOfFile);
}
