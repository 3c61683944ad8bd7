#include "fuzz/fuzz.h"
#include "stat/clids.h"

// The input is an application's identifier file, and its vendor file.
void FuzzClids(std::string_view input) {
  const std::string id = "{6F9619FF-8B86-D011-B42D-00CF4FC964FF}";
  Files()[MakerFile("ui")] = id;
  Files()[MakerFile("clids-app.xml")] = input;
  Files()[MakerFile("vendor-specific-urlparam-app.txt")] = input;
  TClids clids(kApp);
  clids.ParseFile(MakerFile("clids-app.xml"));
  for (int number = 1; number <= 8; ++number) {
    const TClids::Clid& slot = clids.Slots()[static_cast<std::size_t>(number - 1)];
    Check((slot.text.empty() && slot.vid.empty()) || clids.Numbered().contains(number),
          "an identifier in a slot has a number too");
  }
  for (const auto& each : clids.Numbered()) Check(each.first > 0, "numbers begin at 1");

  const std::string clid = clids.ReadClids();
  Check(clid.starts_with(clids.Slots()[0].text), "the identifier is the first slot's");
  const std::string vendor = clids.VendorParam();
  Check(vendor.size() <= 254, "the vendor's text is bounded");
  Check(!vendor.ends_with('\n') && !vendor.ends_with('\r'), "it ends without a line break");
  Check(clids.AppInfoForUrl("1.2.3.4", "win") ==
            "krsoft=app" + (clid.empty() ? "" : "&clid=" + clid) + "&ui=" + id +
                "&ver=1.2.3.4&os=win" + (vendor.empty() ? "" : "&vnd-params=" + vendor),
        "a ping says what the files say");
}
