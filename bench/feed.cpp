#include "bench/feed.h"

namespace {

std::string Element(const std::string& name, const std::string& text) {
  return "      <" + name + ">" + text + "</" + name.substr(0, name.find(' ')) + ">\n";
}

// References, an attribute and long addresses stand in each item, as in real feeds: a parser must
// not be measured with plain text alone. Versions rise with the number, so the last one wins.
std::string MakeItem(int number, bool isX86) {
  const std::string version = "2." + std::to_string(number / 10000) + "." +
                              std::to_string(number / 100 % 100) + "." +
                              std::to_string(number % 100);
  const std::string server = "http://dl.example.com/" + version;
  return "    <item>\n" + Element("title", "Version " + version + " &amp; its dialogs") +
         Element("link", server + "/notes.html") +
         Element("description",
                 "Fixes the start page, draws long lists &quot;twice&quot; as fast.") +
         Element("pubDate", "Tue, 14 Nov 2023 22:13:20 GMT") +
         Element("guid", server + "/setup.exe") +
         Element("version:platform", isX86 ? "x86" : "x64") + Element("version:version", version) +
         Element("version:status", "release") +
         Element("version:md5", "0123456789abcdef0123456789abcdef") +
         Element("version:distsize", std::to_string(20000000 + number)) +
         Element("version:distargs", "/quiet /log=&quot;setup.log&quot;") +
         Element("version:local_dlgs lang=\"ru\" ver=\"1.0\" date=\"1700000000\"",
                 server + "/ru.zip") +
         "    </item>\n";
}

}  // namespace

std::string MakeFeed(int items, int platforms) {
  std::string feed =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\">\n  <channel>\n";
  for (int i = 0; i < items; ++i) feed += MakeItem(i, i % platforms == 0);
  return feed + "  </channel>\n</rss>\n";
}
