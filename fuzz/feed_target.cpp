#include <stdexcept>

#include "fuzz/fuzz.h"
#include "install/update_offer.h"
#include "update/upd_info.h"
#include "util/text.h"
#include "xml/xml_node.h"

namespace {

constexpr std::uint64_t kNow = 1'700'000'000;

enum class Outcome { kRefused, kNothing, kFound };

Outcome Evaluate(std::string_view bytes, bool wantUnstable) {
  Files().clear();
  Files()[AppFile("appinfo.xml")] =
      "<appinfo><VerMajor>1</VerMajor><VerMinor>2</VerMinor><VerSubver>3</VerSubver>"
      "<VerBuild>4</VerBuild><Platform>win</Platform><Locale>en</Locale><WantUnstableToo>" +
      DecimalText(wantUnstable ? 1 : 0) + "</WantUnstableToo></appinfo>";
  TAppInfo2 app(kApp);
  XmlNode feed;
  bool found = false;
  try {
    if (!LoadXml(std::string(bytes), &feed)) return Outcome::kRefused;
    found = TUpdInfo(kApp).Evaluate(app, std::move(feed), kNow);
  } catch (const std::invalid_argument&) {
  } catch (const char* message) {
    Check(std::string_view(message) == "Bad version mask.", "the message is the known one");
  }
  const bool checked = app.ReadNumber("LastCheckTime") == kNow;
  Check(checked || !found, "a check that found an update was made");
  Check(found == Files().contains(AppFile("updinfo.xml")), "an update is written or none is");
  return found ? Outcome::kFound : checked ? Outcome::kNothing : Outcome::kRefused;
}

// The update that was written down.
VersionNumber CheckUpdate(bool wantUnstable) {
  XmlNode root;
  Check(LoadXml(Files()[AppFile("updinfo.xml")], &root), "the store is whole");
  const TUpdInfo update(kApp);
  const VersionNumber version =
      MakeVersion(update.VerMajor(), update.VerMinor(), update.VerSubver(), update.VerBuild());
  Check(version > MakeVersion(1, 2, 3, 4), "an update is newer");
  Check(wantUnstable || update.ReadNumber("VersionStatus") >= VS_RELEASE, "it is a release");
  for (const char* key : {"DistroStarter", "MSIArgs", "Title", "Description"}) {
    Check(IsValidUtf8(update.Read(key)), "texts are UTF-8");
    Check(update.Read(key).size() <= 65536, "and bounded");
  }
  const auto offer = ReadOffer(kApp);
  Check(offer.has_value() == !update.Read("DistroUrl").empty(),
        "an update with address is offered");
  Check(!offer || offer->version == version, "as what it is");
  return version;
}

}  // namespace

void FuzzFeed(std::string_view input) {
  const Outcome stable = Evaluate(input, false);
  const VersionNumber release = stable == Outcome::kFound ? CheckUpdate(false) : 0;
  const Outcome any = Evaluate(input, true);
  Check((stable == Outcome::kRefused) == (any == Outcome::kRefused), "a feed is good for all");
  Check(stable != Outcome::kFound || any == Outcome::kFound, "a release is there for all");
  if (any == Outcome::kFound) Check(CheckUpdate(true) >= release, "who wants more gets no less");
}
