#include "stat/stat_holder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/data_home.h"

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
  const struct {
    Texts states;
    const char* queries;
    AppState last;
  } cases[] = {
      {{"install", "install"}, "stat=install", AppState::kInstall},
      {{"uninstall", "uninstall"}, "stat=uninstall", AppState::kUninstall},
      {{"install", "dayuse"}, "stat=install", AppState::kDayuse},
      {{"install", "dayuse", "install"}, "stat=install stat=install", AppState::kInstall},
      {{"dayuse", "uninstall", "dayuse"}, "stat=dayuse stat=uninstall", AppState::kDayuse},
  };
  for (const auto& c : cases) {
    TStatHolder holder = Holder(c.states);
    EXPECT_EQ(holder.LastState(), c.last) << c.queries;
    EXPECT_EQ(Queries(holder), c.queries);
  }
  TStatHolder unknown;
  unknown.AddState(AppState{7});
  EXPECT_FALSE(unknown.HasStates());
  EXPECT_EQ(unknown.LastState(), AppState{7});
  TStatHolder stored;
  EXPECT_TRUE(stored.ParseXML(unknown.MakeXML()));
  EXPECT_EQ(stored.LastState(), AppState::kDayuse);
}

TEST(TStatHolder, TheFileIsReadAndWrittenUnchanged) {
  TStatHolder holder;
  EXPECT_TRUE(holder.ParseXML(kWholeFile));
  EXPECT_EQ(holder.MakeXML(), kWholeFile);
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
  EXPECT_EQ(Queries(holder), "stat=install&a=1&\xD1\x8F#&n=v=w&action=<go> stat=uninstall");
}

TEST(TStatHolder, TextsKeepTheirBytesButBlanksInFront) {
  const DataHome home;
  const std::string path = (home.AppFolder("app") / "statistics.xml").string();
  for (const std::string& text : {std::string("a=b=c&#x23;\"'<>]]>"), std::string("\ra\r\nb\nc\r"),
                                  std::string("\x01\x1A\x7F\0\xFF\xA0\t ", 8), std::string()}) {
    ASSERT_TRUE(Holder({}, {" \t\n" + text}, {"n=" + text}).Save(path));
    TStatHolder holder;
    ASSERT_TRUE(holder.Load(path));
    EXPECT_EQ(holder.LastParam(), text);
    EXPECT_EQ(holder.GetUniqueParam("n"), text);
  }
}

TEST(TStatHolder, DamagedFilesAreKeptAsideAndReadAsFarAsTheyAreWhole) {
  const DataHome home;
  const std::string path = (home.AppFolder("app") / "statistics.xml").string();
  const std::size_t endOfParams = kWholeFile.find("</optional-params>") + 18;
  Texts files = {"plain text", "<other><last-param>x</last-param></other>"};
  for (std::size_t length = 1; length < kWholeFile.rfind('>'); length += 3) {
    files.push_back(kWholeFile.substr(0, length));
  }
  for (const std::string& bytes : files) {
    SCOPED_TRACE(bytes);
    WriteBytes(path, bytes);
    TStatHolder holder;
    EXPECT_TRUE(holder.Load(path));
    EXPECT_EQ(ReadBytes(path + ".bak"), bytes);
    EXPECT_EQ(Queries(holder).starts_with("stat=install&a=1&"), bytes.size() >= endOfParams);
  }
}

TEST(TStatHolder, ExtractBlock) {
  const struct {
    const char* label;
    std::int16_t budget;
    const char* query;
  } cases[] = {
      {"state alone uses it up", 13, "stat=install"},
      {"one left: the item overruns it", 14, "stat=install&a=1"},
      {"four left for a parameter of three", 17, "stat=install&a=1"},
      {"five left", 18, "stat=install&a=1&b=2"},
      {"one short of a unique parameter", 22, "stat=install&a=1&b=2"},
      {"unique parameters by name", 23, "stat=install&a=1&b=2&y=2"},
      {"one short of an action", 38, "stat=install&a=1&b=2&y=2&z=1"},
      {"an action", 39, "stat=install&a=1&b=2&y=2&z=1&action=go"},
      {"both actions", 42, "stat=install&a=1&b=2&y=2&z=1&action=go,on"},
  };
  for (const auto& c : cases) {
    TStatHolder holder = Holder({"install"}, {"a=1", "b=2"}, {"z=1", "y=2"}, {"go", "on"});
    TStatHolder block;
    ASSERT_EQ(holder.ExtractBlock(c.budget, &block), AppState::kInstall);
    EXPECT_EQ(block.MakeQuery(), c.query) << c.label;
    EXPECT_TRUE(block.IsEmpty()) << c.label;
  }
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

TEST(TStatHolder, TheFirstDateCountsOnceItIsConfirmed) {
  TStatHolder holder;
  holder.SetConfirmed(true);
  EXPECT_FALSE(holder.Confirmed()) << "there is no date";
  holder.SetFirstDate("01.02.2003");
  EXPECT_TRUE(holder.IsEmpty());
  EXPECT_NE(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
  holder.SetConfirmed(true);
  EXPECT_FALSE(holder.IsEmpty());
  EXPECT_EQ(holder.GetFirstDate(AppState::kInstall), "01.02.2003");
}
