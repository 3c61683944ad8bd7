#include <algorithm>

#include "fuzz/fuzz.h"
#include "install/update_offer.h"

namespace {

void CheckAddress(std::string_view url) {
  if (!IsFetched(url)) return;
  Check(url.size() <= kMaxAddressBytes, "an address is bounded");
  Check(std::all_of(url.begin(), url.end(), [](char c) { return c > ' ' && c < '\x7F'; }),
        "an address is printable ASCII");
  Check(url.find_first_of("@#\\\"<>") == url.npos, "an address names no user and no fragment");
  Check(url.find("://") <= 5 && url.substr(url.find("://") + 3, 1) != "/", "an address has a host");
}

void CheckRedirection(std::string_view url, std::string_view location) {
  if (!IsFetched(url)) return;
  const std::string to = RedirectedAddress(url, location);
  CheckAddress(to);
  Check(to.empty() || to.ends_with(location), "a redirection goes where the server says");
  Check(to.empty() || IsFetched(to), "and to nothing else");
  if (to.empty() || !location.starts_with('/') || location.starts_with("//")) return;
  Check(url.starts_with(std::string_view(to).substr(0, to.size() - location.size())),
        "a path stays on its host");
}

}  // namespace

// Lines: an address, and where it redirects to. As a whole it is the record of an update.
void FuzzOffer(std::string_view input) {
  Files()[AppFile("updinfo.xml")] = input;
  if (const auto offer = ReadOffer(kApp)) {
    Check(!offer->url.empty(), "an offer has an address");
    Check(offer->size <= INT64_MAX, "its size is a size");
  }
  const std::string_view url = TakeLine(&input);
  CheckAddress(url);
  CheckRedirection(url, TakeLine(&input));
}
