#include "fuzz/fuzz.h"
#include "stat/clids.h"

// The input is an application's identifier file, and its vendor file.
void FuzzClids(std::string_view input) {
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

  Check(clids.ReadClids().starts_with(clids.Slots()[0].text), "the identifier is the first slot's");
  Check(clids.VendorParam().size() <= 254, "the vendor's text is bounded");
}
