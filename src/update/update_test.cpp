// From a feed to the update found.
#include <stdexcept>

#include "testing/unit_test.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/limits.h"

namespace {

constexpr std::int64_t kNow = 1700000000;
constexpr char kTarget[] = "update:target";

std::string Feed(const std::string& items) { return "<rss><channel>" + items + "</channel></rss>"; }

std::string Element(const std::string& name, const std::string& text) {
  return "<" + name + ">" + text + "</" + name + ">";
}

std::string Item(const std::string& version, const std::string& more = {},
                 const std::string& status = "release") {
  return Element("item", Element("version:version", version) + Element("version:status", status) +
                             Element("guid", "common " + version) + more);
}

// What makes an item a targeted update to `version`.
std::string Update(const std::string& version) {
  return Element("update:version", version) + Element("update:status", "release") +
         Element("update:guid", "target " + version);
}

// The application "qb" of version 1.0.5.3 on "x86", and the store of its updates.
struct Evaluation : testing::Test {
  Evaluation() {
    app_.SetVersion(1, 0, 5, 3);
    app_.Write("Platform", "x86");
    app_.Write("Locale", "ru");
  }

  // The address of the update found; "-" without an update when the check counts, else "refused";
  // what was thrown.
  std::string Evaluate(std::string text) {
    app_.RemoveValue("LastCheckTime");
    try {
      XmlNode feed;
      feed.Parse(std::move(text));
      const bool isFound = store_.Evaluate(app_, std::move(feed), kNow);
      if (app_.ReadNumber("LastCheckTime") != kNow) return "refused";
      return isFound ? store_.Read("DistroUrl") : "-";
    } catch (const std::invalid_argument& error) {
      return error.what();
    } catch (const char* message) {
      return message;
    }
  }

  // Of the update that was found, as they stand in its file.
  std::string Values() const {
    XmlNode file;
    LoadXml(ReadBytes(home_.AppFolder("qb") / "updinfo.xml"), &file);
    std::string values;
    for (const XmlNode* each = file.FirstChild(); each; each = each->Next()) {
      values.append(each->Name()).append("=").append(each->Value()).append(" ");
    }
    return values;
  }

  DataHome home_;
  TAppInfo2 app_{"qb"};
  TUpdInfo store_{"qb"};
};

// Two items, of which the second is a targeted update as well.
std::string Targeted(const std::string& targets) {
  return Item("3.0.0.0") + Item("2.0.0.0", targets + Update("1.5.0.0"));
}
std::string Masked(const char* mask) { return Targeted(Element(kTarget, mask)); }

}  // namespace

TEST_F(Evaluation, ChoosesAnUpdate) {
  const auto expect = [&](const std::string& want, std::initializer_list<std::string> items) {
    ExpectAll(want, items, [&](const std::string& each) { return Evaluate(Feed(each)); });
  };
  const std::string beta = Item("1.2.0.0", "", "beta") + Item("1.1.0.0");
  expect("sscanf failed on input string; ''", {"<item/>"});
  expect("common 1.10.0.0", {Item("1.9.0.0") + Item("1.10.0.0", "", "critical")});
  expect("common 1.1.0.0", {beta});
  // The later one of equals.
  expect("common  2.0.0.0", {Item("2.0.0.0") + Item(" 2.0.0.0")});
  // The current version; another platform; another nick.
  expect("-", {Item("1.0.5.3") + Item("1.0.5.2"), Item("2.0.0.0", Element("version:platform", "x")),
               Item("2.0.0.0", Element("version:nick", "qbx"))});
  // A target wins over a higher common version.
  expect("target 1.5.0.0", {Masked("1.0"), Masked("1."), Masked("1.0.5.3"),
                            Targeted("<update:target/>" + Element(kTarget, "<![CDATA[1]]>")),
                            Targeted("<update:target begin='1.0.5.3' end='1.0.5.3'/>")});
  expect("common 3.0.0.0", {Masked("1.0.5.0"), Targeted("<update:target begin='1.0.5.4'/>"),
                            Targeted("<update:target end='1.0.4'/>")});
  expect("Bad version mask.", {Masked("any"), Masked(".1"), Masked("1..2")});
  // Two addresses are ambiguous for those that are meant; others, and those of our nick, go on.
  expect("refused", {Targeted(Element(kTarget, "1") + "<update:guid/>")});
  expect("common 2.0.0.0", {Item("2.0.0.0", Update("1.5.0.0") + "<update:guid/>"),
                            Item("2.0.0.0", Element("version:nick", "QB"))});
  EXPECT_EQ(Evaluate("<rss/>"), "-");
  EXPECT_EQ(Evaluate("<html/>"), "bad xml: root node name is not 'rss' but html");
  app_.WriteFlag("WantUnstableToo", true);
  expect("common 1.2.0.0", {beta});
}

TEST_F(Evaluation, LogsItsWayInBounds) {
  const LogCapture log;
  Evaluate(Feed(Item("1.5.0.0", "<update:target begin='1.0.6'/>" + Element(kTarget, "1.0.5") +
                                    Update("1.6.0.0"))));
  for (const char* line : {"Target version range:  1.0.6  - ", "Will use  target  update.",
                           "Found  target  version:  1.6.0.0,  release"}) {
    EXPECT_TRUE(log.Has(line));
  }
  std::string many;
  for (int i = 0; i < 1100; ++i) many += Item("2.0.0." + std::to_string(i), {}, "beta");
  const LogCapture capped;
  Evaluate(Feed(many));
  EXPECT_LE(capped.Lines().size(), 1003u) << "1000 of its items, and the feed's own";
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
  Evaluate(Feed(Item("2.1.0.15", common, "critical")));
  EXPECT_EQ(Values(),
            "VerMajor=2 VerMinor=1 VerSubver=0 VerBuild=15 VersionStatus=2 "
            "DistroUrl=common 2.1.0.15 DistroMD5=m DistroArgs=a DistroStarter=s MSIArgs=i "
            "DlgsArchiveUrl=dlg DlgsArchiveDate=3 DlgsArchiveStyle=static Title=t "
            "Description=<d> Platform=x86 Favicon=f LocaleUrl=loc LocaleDate=2 UACDlg=1 "
            "DistroSize=1048576 Homepage=l ");
  // A targeted update has texts of its own; what it lacks is emptied.
  const std::string own = Element(kTarget, "1") + Element("update:description", "o");
  Evaluate(Feed(Item("1.0.0.0", common + own + Update("2.0.0.0"), "beta")));
  EXPECT_EQ(Values(),
            "VerMajor=2 VerMinor=0 VerSubver=0 VerBuild=0 VersionStatus=1 "
            "DistroUrl=target 2.0.0.0 DistroMD5= DistroArgs= DistroStarter= MSIArgs= "
            "DlgsArchiveUrl= DlgsArchiveDate= DlgsArchiveStyle= Title=t Description=o "
            "Platform=x86 Favicon=f LocaleUrl= LocaleDate= UACDlg= DistroSize=0 Homepage=l ");
}

TEST_F(Evaluation, ChoosesDialogs) {
  const auto local = [](const std::string& attributes, const char* url) {
    return "<version:local_dlgs " + attributes + ">" + url + "</version:local_dlgs>";
  };
  const Table<std::string, std::string> table = {
      {"our language", local("", "a") + local("lang='ru' date='1'", "b") + local("lang='ru'", "c"),
       "b 1 local"},
      {"the last without a language",
       local("date='1'", "a") + local("date='2'", "b") + local("lang='RU'", "c"), "b 2 local"},
      {"made for others",
       local("ver='2.0' lang='ru'", "a") + "<version:dlgs ver='1.0' date='4'>b</version:dlgs>" +
           Element("version:dlgs-date", "5"),
       "b 4 static"},
      {"all made for others",
       "<version:dlgs date='4'>b</version:dlgs>" + Element("version:dlgs-ver", "2.0"), "  "}};
  table.Expect([&](const std::string& dialogs) {
    Evaluate(Feed(Item("2.0.0.0", dialogs)));
    return store_.Read("DlgsArchiveUrl") + " " + store_.Read("DlgsArchiveDate") + " " +
           store_.Read("DlgsArchiveStyle");
  });
}

TEST_F(Evaluation, StoresTextsAsUtf8) {
  const std::string cyrillic = "\xD0\x90\xD1\x8F";  // two letters, in windows-1251 C0 FF
  using Text = std::pair<const char*, std::string>;
  const Table<Text, std::string> table = {
      {{" encoding='utf-8'", cyrillic + "&nbsp;\xD0\xA0"}, cyrillic + "\xC2\xA0\xD0\xA0"},
      {{" encoding='utf-8'", cyrillic + "&#169;\xC0 "}, cyrillic + "\xC2\xA9\xC3\x80 "},
      {{"", cyrillic + "&nbsp;"}, cyrillic + "\xC2\xA0"},
      {{"", "\xC0\xFF"}, cyrillic},
      {{" encoding='Windows-1251'", "\xD0\x90&nbsp;"}, "\xD0\xA0\xD1\x92\xC2\xA0"},
      {{" encoding='koi8-r'", cyrillic}, cyrillic}};
  table.Expect([&](const Text& title) {
    Evaluate("<?xml version='1.0'" + std::string(title.first) + "?>" +
             Feed(Item("2.0.0.0", Element("title", title.second))));
    return store_.Read("Title");
  });
  const std::string almost(65535, 'x');  // one byte less than a store takes
  const std::string more = Element("title", almost + cyrillic) + Element("link", almost + "yz");
  Evaluate(Feed(Item("2.0.0.0", more)));
  EXPECT_EQ(store_.Read("Title"), almost);
  EXPECT_EQ(store_.Read("Homepage"), almost + "y");
}

TEST_F(Evaluation, AFeedOfTooManyBytesIsNotRead) {
  const std::string path = (home_.AppFolder("qb") / "feed").string();
  std::string feed = Feed({});
  feed.resize(kMaxFeedBytes, '\n');
  WriteBytes(path, feed);
  EXPECT_EQ(LoadFeed(path).Name(), "rss");
  WriteBytes(path, feed + "\n");
  EXPECT_THROW(LoadFeed(path), std::runtime_error);
}
