#include "install/trust.h"

#include "util/text.h"

std::string Describe(const TrustAnchors& trust) {
  if (!trust.publicKeys.empty()) {
    return "Updates need a manifest signed with a publisher's key; this build knows " +
           DecimalText(static_cast<std::int64_t>(trust.publicKeys.size())) + ".";
  }
  if (!trust.publisherName.empty()) {
    return "Updates need an Authenticode signature of \"" + trust.publisherName + "\".";
  }
  return "No update is ever run: this build knows neither a publisher's key nor a publisher's "
         "name.";
}
