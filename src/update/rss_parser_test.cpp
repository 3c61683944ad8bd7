#include "update/rss_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/table.h"
#include "update/upd_info.h"
#include "util/text.h"

namespace {

constexpr std::uint64_t kNow = 1700000000;

std::string Feed(const std::string& items) { return "<rss><channel>" + items + "</channel></rss>"; }

std::string Element(const std::string& name, const std::string& text) {
  return "<" + name + ">" + text + "</" + name + ">";
}

std::string Item(const std::string& version, const std::string& status,
                 const std::string& more = {}) {
  return Element("item", Element("version:version", version) + Element("version:status", status) +
                             Element("guid", "common " + version) + more);
}

// What makes an item a targeted update to `version`.
std::string Update(const std::string& version, const std::string& status = "release") {
  return Element("update:version", version) + Element("update:status", status) +
         Element("update:guid", "target " + version);
}

XmlNode Parsed(std::string text) {
  XmlNode root;
  root.Parse(std::move(text));
  return root;
}

// The application "qb" of version 1.0.5.3 on "x86", and the store of its updates.
class Evaluation : public testing::Test {
 protected:
  Evaluation() {
    app_.SetVersion(1, 0, 5, 3);
    app_.Write("Platform", "x86");
    app_.Write("Locale", "ru");
  }

  // The address of the update found; "-" when there is none; what was thrown.
  std::string Evaluate(std::string feed) {
    try {
      return store_.Evaluate(app_, Parsed(std::move(feed)), kNow) ? store_.Read("DistroUrl") : "-";
    } catch (const std::invalid_argument& error) {
      return error.what();
    } catch (const char* message) {
      return message;
    }
  }

  DataHome home_;
  TAppInfo2 app_{"qb"};
  TUpdInfo store_{"qb"};
};

std::string Targeted(const std::string& targets) {
  return Feed(Item("3.0.0.0", "release") + Item("2.0.0.0", "release", targets + Update("1.5.0.0")));
}

}  // namespace

TEST_F(Evaluation, ChoosesAnUpdate) {
  const std::string twoGuids = Update("1.5.0.0") + "<update:guid/>";
  const Table<std::string, std::string> table = {
      {"no channel", "<rss/>", "-"},
      {"another root", "<html/>", "bad xml: root node name is not 'rss' but html"},
      {"not an item", Feed(Element("entry", Item("2.0.0.0", "release"))), "-"},
      {"no version", Feed("<item/>"), "sscanf failed on input string; ''"},
      {"newest", Feed(Item("1.9.0.0", "release") + Item("1.10.0.0", "critical")),
       "common 1.10.0.0"},
      {"beta passed over", Feed(Item("1.2.0.0", "beta") + Item("1.1.0.0", "release")),
       "common 1.1.0.0"},
      {"unknown status passed over", Feed(Item("1.2.0.0", "Release")), "-"},
      {"current", Feed(Item("1.0.5.3", "release") + Item("1.0.5.2", "release")), "-"},
      {"later of equals", Feed(Item("2.0.0.0", "release") + Item(" 2.0.0.0", "release")),
       "common  2.0.0.0"},
      {"another platform", Feed(Item("2.0.0.0", "release", Element("version:platform", "x64"))),
       "-"},
      {"platform and nick",
       Feed(Item("2.0.0.0", "release",
                 Element("version:platform", "x86") + Element("version:nick", "QB"))),
       "common 2.0.0.0"},
      {"another nick", Feed(Item("2.0.0.0", "release", Element("version:nick", "qbx"))), "-"},
      {"target over higher common", Targeted("<update:target>1.0</update:target>"),
       "target 1.5.0.0"},
      {"exactly us", Targeted("<update:target>1.0.5.3</update:target>"), "target 1.5.0.0"},
      {"four parts, not us", Targeted("<update:target>1.0.5.0</update:target>"), "common 3.0.0.0"},
      {"second target",
       Targeted("<update:target/><update:target>0.9</update:target>"
                "<update:target><![CDATA[1]]></update:target>"),
       "target 1.5.0.0"},
      {"begin and end", Targeted("<update:target begin='1.0.5.3' end='1.0.5'/>"), "target 1.5.0.0"},
      {"begin above us", Targeted("<update:target begin='1.0.5.4'/>"), "common 3.0.0.0"},
      {"end below us", Targeted("<update:target end='1.0.4'/>"), "common 3.0.0.0"},
      {"bad mask", Targeted("<update:target>any</update:target>"), "Bad version mask."},
      {"ambiguous", Targeted("<update:target>1</update:target><update:guid/>"), "-"},
      {"ambiguous for others", Feed(Item("2.0.0.0", "release", twoGuids)), "common 2.0.0.0"},
  };
  table.Expect([&](const std::string& feed) { return Evaluate(feed); });
  app_.WriteFlag("WantUnstableToo", true);
  EXPECT_EQ(Evaluate(Feed(Item("1.2.0.0", "beta") + Item("1.1.0.0", "release"))), "common 1.2.0.0");
}

TEST_F(Evaluation, SetsTheCheckTimeUnlessRefused) {
  const Table<std::string, std::string> table = {
      {"no update", "", "1700000000"},
      {"an update", Item("2.0.0.0", "release"), "1700000000"},
      {"ambiguous", Item("2.0.0.0", "release", "<update:target>1</update:target>"), ""},
  };
  table.Expect([&](const std::string& items) {
    app_.RemoveValue("LastCheckTime");
    Evaluate(Feed(items));
    return app_.Read("LastCheckTime");
  });
}

TEST_F(Evaluation, LogsItsWay) {
  const LogCapture capture;
  RssParser parser;
  parser.IsUpgradeAvailable(
      app_,
      Parsed(Feed(Item("2.0.0.0", "beta", "<update:target>1.1</update:target><update:target/>") +
                  Item("1.5.0.0", "release",
                       "<update:target>1.0.5.2</update:target><update:target begin='1.0.6'/>"))),
      kNow);
  parser.IsUpgradeAvailable(
      app_, Parsed(Feed(Item("1.0.5.3", "release", "<update:target begin='1'/>"))), kNow);
  EXPECT_EQ(
      capture.Lines(),
      (std::vector<std::string>{
          "I:RssParser::IsUpgradeAvailable: Current version:  1.0.5.3",
          "D:RssParser::AreWeTarget: Target version:  1.1",
          "D:RssParser::AreWeTarget: Try to check in:  0  -  4294967295",
          "I:RssParser::AreWeTarget: The empty <update:target> unacceptable. Please try to set "
          "value, or begin/end attribute.",
          "D:RssParser::AreWeTarget: Target version:  1.0.5.2",
          "D:RssParser::AreWeTarget: Target version range:  1.0.6  - ",
          "D:RssParser::AreWeTarget: Try to check in:  393216  -  4294967295",
          "I:RssParser::FindUpdate: Will use  common  update.",
          "D:RssParser::FindUpdate: Try to check ver:  2.0.0.0",
          "D:RssParser::FindUpdate: Try to check ver:  1.5.0.0",
          "I:UpdateInfo::LogI: Found  common  version:  1.5.0.0,  release",
          "I:RssParser::IsUpgradeAvailable: Update founded...",
          "I:RssParser::IsUpgradeAvailable: Current version:  1.0.5.3",
          "D:RssParser::AreWeTarget: Target version range:  1  - ",
          "D:RssParser::AreWeTarget: Try to check in:  0  -  4294967295",
          "E:RssParser::FillUpdateList: RSS <item> have multiple (or empty) targets "
          "URL/status/version.",
          "E:RssParser::FillUpdateList: Update stopped.",
      }));
}

TEST_F(Evaluation, WritesTheUpdateDown) {
  const std::string common =
      "<version:md5>m</version:md5><version:distargs>a</version:distargs>"
      "<version:diststart>s</version:diststart><version:msiargs>i</version:msiargs>"
      "<version:distsize>1048576</version:distsize><version:uac_dlg>1</version:uac_dlg>"
      "<version:platform>x86</version:platform><version:favicon>f</version:favicon>"
      "<title>t</title><description><![CDATA[<d>]]></description><link>l</link>"
      "<version:locale date='2'>loc</version:locale><version:dlgs>dlg</version:dlgs>"
      "<version:dlgs-ver>1.0</version:dlgs-ver><version:dlgs-date>3</version:dlgs-date>";
  ASSERT_EQ(Evaluate(Feed(Item("2.1.0.15", "critical", common))), "common 2.1.0.15");
  std::string file = ReadBytes(home_.AppFolder("qb") / "updinfo.xml");
  std::erase(file, '\r');
  EXPECT_EQ(file,
            "<?xml  version=\"1.0\" encoding=\"utf-8\"?>\n<appinfo>\n"
            "  <VerMajor>2</VerMajor>\n  <VerMinor>1</VerMinor>\n"
            "  <VerSubver>0</VerSubver>\n  <VerBuild>15</VerBuild>\n"
            "  <VersionStatus>2</VersionStatus>\n"
            "  <DistroUrl>common 2.1.0.15</DistroUrl>\n  <DistroMD5>m</DistroMD5>\n"
            "  <DistroArgs>a</DistroArgs>\n  <DistroStarter>s</DistroStarter>\n"
            "  <MSIArgs>i</MSIArgs>\n  <DlgsArchiveUrl>dlg</DlgsArchiveUrl>\n"
            "  <DlgsArchiveDate>3</DlgsArchiveDate>\n"
            "  <DlgsArchiveStyle>static</DlgsArchiveStyle>\n  <Title>t</Title>\n"
            "  <Description>&lt;d&gt;</Description>\n  <Platform>x86</Platform>\n"
            "  <Favicon>f</Favicon>\n  <LocaleUrl>loc</LocaleUrl>\n"
            "  <LocaleDate>2</LocaleDate>\n  <UACDlg>1</UACDlg>\n"
            "  <DistroSize>1048576</DistroSize>\n  <Homepage>l</Homepage>\n</appinfo>\n");

  // A targeted update has texts of its own, and what it lacks is emptied.
  const std::string own =
      "<update:target>1</update:target><update:description>o</update:description>";
  ASSERT_EQ(Evaluate(Feed(Item("1.0.0.0", "beta", common + own + Update("2.0.0.0", "release")))),
            "target 2.0.0.0");
  const Table<const char*, std::string> table = {
      {"VersionStatus", "1"}, {"Title", "t"},      {"Description", "o"},
      {"Homepage", "l"},      {"DistroMD5", ""},   {"DlgsArchiveStyle", ""},
      {"DistroSize", "0"},    {"Platform", "x86"}, {"LocaleUrl", ""}};
  table.Expect([&](const char* key) { return store_.Read(key); });
}

TEST_F(Evaluation, ChoosesDialogs) {
  const Table<const char*, std::string> table = {
      {"our language",
       "<version:local_dlgs>a</version:local_dlgs><version:local_dlgs lang='ru' "
       "date='1'>b</version:local_dlgs><version:local_dlgs lang='ru'>c</version:local_dlgs>",
       "b 1 local"},
      {"the last without a language",
       "<version:local_dlgs date='1'>a</version:local_dlgs><version:local_dlgs "
       "date='2'>b</version:local_dlgs><version:local_dlgs lang='RU'>c</version:local_dlgs>",
       "b 2 local"},
      {"made for others",
       "<version:local_dlgs ver='2.0' lang='ru'>a</version:local_dlgs><version:dlgs ver='1.0' "
       "date='4'>b</version:dlgs><version:dlgs-date>5</version:dlgs-date>",
       "b 4 static"},
      {"all made for others",
       "<version:dlgs date='4'>b</version:dlgs><version:dlgs-ver>2.0</version:dlgs-ver>", "  "},
  };
  table.Expect([&](const char* dialogs) {
    Evaluate(Feed(Item("2.0.0.0", "release", dialogs)));
    return store_.Read("DlgsArchiveUrl") + " " + store_.Read("DlgsArchiveDate") + " " +
           store_.Read("DlgsArchiveStyle");
  });
}

TEST_F(Evaluation, StoresTextsAsUtf8) {
  const std::string cyrillic = "\xD0\x90\xD1\x8F";  // two letters, in windows-1251 C0 FF
  using Text = std::pair<const char*, std::string>;
  const Table<Text, std::string> table = {
      {{"utf-8", cyrillic + "&nbsp;\xD0\xA0"}, cyrillic + "\xC2\xA0\xD0\xA0"},
      {{"utf-8", "\xC0\xFF"}, cyrillic},
      {{"windows-1251", "\xC0\xFF&nbsp;"}, cyrillic + "\xC2\xA0"},
      {{"windows-1251", "\xD0\x90"}, "\xD0\xA0\xD1\x92"},
      {{"koi8-r", cyrillic}, cyrillic},
  };
  table.Expect([&](const Text& title) {
    Evaluate("<?xml version='1.0' encoding='" + std::string(title.first) + "'?>" +
             Feed(Item("2.0.0.0", "release", Element("title", title.second))));
    return store_.Read("Title");
  });
}
