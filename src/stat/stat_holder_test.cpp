#include "stat/stat_holder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "appinfo/app_info.h"
#include "testing/data_home.h"
#include "testing/table.h"

namespace {

using Texts = std::vector<std::string>;

const std::string kWholeFile =
    "<?xml  version=\"1.0\" encoding=\"windows-1251\"?>\n<statistics>\n"
    "  <application-states>\n    <state ord=\"1\">install</state>\n"
    "    <state ord=\"2\">uninstall</state>\n  </application-states>\n"
    "  <optional-params>\n    <param ord=\"1\">a=1</param>\n"
    "    <param ord=\"2\">\xD1\x8F&#x23;</param>\n  </optional-params>\n"
    "  <unique-params>\n    <param ord=\"1\">n=v=w</param>\n  </unique-params>\n"
    "  <actions>\n    <action ord=\"1\">&lt;go&gt;</action>\n  </actions>\n"
    "  <last-state>uninstall</last-state>\n  <last-param>p</last-param>\n"
    "  <last-action/>\n  <ts confirmed=\"true\">01.02.2003</ts>\n</statistics>\n";

TStatHolder Holder(const Texts& states, const Texts& params = {}, const Texts& unique = {},
                   const Texts& actions = {}) {
  TStatHolder holder;
  for (const std::string& word : states) holder.AddState(TAppStateHolder::Import(word));
  for (const std::string& param : params) holder.AddOptionalParam(param);
  for (const std::string& param : unique) holder.SetUniqueParam(param);
  for (const std::string& action : actions) holder.AddAction(action);
  return holder;
}

// All that waits: the queries of one block per state.
std::string Queries(TStatHolder& holder) {
  std::string queries;
  for (TStatHolder block; holder.ExtractBlock(1000, &block); block = TStatHolder()) {
    queries += (queries.empty() ? "" : " ") + block.MakeQuery();
  }
  return queries;
}

}  // namespace

TEST(TStatHolder, AddState) {
  const Table<Texts, std::string> table = {
      {{"install", "install"}, "stat=install last=install"},
      {{"install", "dayuse", "install"}, "stat=install stat=install last=install"},
      {{"dayuse", "uninstall", "dayuse"}, "stat=dayuse stat=uninstall last=dayuse"},
  };
  table.Expect([](const Texts& states) {
    TStatHolder holder = Holder(states);
    const std::string_view last = TAppStateHolder::Text(holder.LastState());
    return Queries(holder).append(" last=").append(last);
  });
}

TEST(TStatHolder, TheFileIsReadAndWrittenUnchanged) {
  TStatHolder holder;
  EXPECT_TRUE(holder.ParseXML(kWholeFile));
  EXPECT_EQ(holder.MakeXML(), kWholeFile);
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
  holder.SetConfirmed(false);
  EXPECT_NE(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
  TStatHolder dateless;
  EXPECT_TRUE(dateless.ParseXML("<statistics><ts confirmed='true'/></statistics>"));
  EXPECT_FALSE(dateless.Confirmed());
  EXPECT_FALSE(TStatHolder().ParseXML("<other/>"));
  EXPECT_EQ(Queries(holder), "stat=install&a=1&\xD1\x8F#&n=v=w&action=<go> stat=uninstall");
}

TEST(TStatHolder, AFileThatIsNotTakenIsKeptAside) {
  const DataHome home;
  const std::string path = (home.AppFolder("app") / "statistics.xml").string();
  const std::string cut = kWholeFile.substr(0, kWholeFile.find("</unique-params>"));
  WriteBytes(path, cut);
  TStatHolder holder;
  EXPECT_TRUE(holder.Load(path));
  EXPECT_EQ(ReadBytes(path + ".bak"), cut);
  EXPECT_EQ(Queries(holder), "stat=install&a=1&\xD1\x8F# stat=uninstall");

  std::string large = kWholeFile;
  large.resize(kMaxStoreBytes, '\n');
  TStatHolder atLimit;
  WriteBytes(path, large);
  EXPECT_TRUE(atLimit.Load(path));
  EXPECT_TRUE(atLimit.HasStates());
  TStatHolder aboveLimit;
  WriteBytes(path, large + "\n");
  EXPECT_TRUE(aboveLimit.Load(path));
  EXPECT_TRUE(aboveLimit.IsEmpty());
  EXPECT_EQ(ReadBytes(path + ".bak").size(), kMaxStoreBytes + 1);
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TStatHolder, ExtractBlock) {
  const Table<std::int16_t, std::string> table = {
      {"state alone uses it up", 13, "stat=install"},
      {"one left: the item overruns it", 14, "stat=install&a=1"},
      {"one short of a unique parameter", 22, "stat=install&a=1&b=2"},
      {"unique parameters by name", 23, "stat=install&a=1&b=2&y=2"},
      {"one short of an action", 38, "stat=install&a=1&b=2&y=2&z=1"},
      {"an action", 39, "stat=install&a=1&b=2&y=2&z=1&action=go"},
  };
  table.Expect([](std::int16_t budget) {
    TStatHolder holder = Holder({"install"}, {"a=1", "b=2"}, {"z=1", "y=2"}, {"go", "on"});
    TStatHolder block;
    holder.ExtractBlock(budget, &block);
    return block.MakeQuery();
  });
}

TEST(TStatHolder, Merge) {
  TStatHolder holder = Holder({"dayuse"}, {"1"}, {"n=old", "m=x"}, {"a"});
  TStatHolder block;
  holder.ExtractBlock(1000, &block);
  holder.AddState(AppState::kUninstall);
  holder.AddState(AppState::kDayuse);
  holder.AddOptionalParam("2");
  holder.SetUniqueParam("n=new");
  holder.AddAction("b");
  holder.Merge(std::move(block));
  EXPECT_EQ(holder.LastParam(), "2");
  EXPECT_EQ(Queries(holder), "stat=dayuse&1&2&m=x&n=new&action=a,b stat=uninstall");
}
