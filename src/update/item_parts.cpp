#include "update/item_parts.h"

#include "util/text.h"

namespace {

constexpr std::string_view kPlatform = "version:platform";
constexpr std::string_view kNick = "version:nick";
constexpr std::string_view kVersion = "version:version";
constexpr std::string_view kTarget = "update:target";

// Texts lie in memory in the order of the nodes, and waiting for them takes most of the time. So
// they are asked for half an item ahead. Any address will do for that, also one behind the feed.
constexpr int kBytesAhead = 400;

}  // namespace

// A feed may have a million of these children. The length of the name rules most of them out,
// without a look at the text, which lies elsewhere in memory. An item of others is walked to its
// end all the same: memory that is read in its order comes before it is asked for, and skipping
// half an item costs more than reading it.
bool FindParts(const XmlNode& item, std::string_view appId, std::string_view platform,
               ItemParts* parts) {
  bool isOurs = true;
  bool hasPlatform = false;
  bool hasNick = false;
  for (const XmlNode* child = item.FirstChild(); child; child = child->Next()) {
    const std::string_view name = child->Name();
    __builtin_prefetch(name.data() + kBytesAhead);
    switch (name.size()) {
      case kPlatform.size():
        if (hasPlatform || name != kPlatform) break;
        isOurs &= child->Text() == platform;
        hasPlatform = true;
        break;
      case kNick.size():
        if (hasNick || name != kNick) break;
        isOurs &= EqualsIgnoreCase(child->Text(), appId);
        hasNick = true;
        break;
      case kVersion.size():
        if (!parts->version && name == kVersion) parts->version = child;
        break;
      case kTarget.size():
        if (!parts->target && name == kTarget) parts->target = child;
        break;
    }
  }
  return isOurs;
}
