#include "update/rss_parser.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "layout/keys.h"
#include "update/feed_fields.h"
#include "update/item_parts.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr std::string_view kCommonPrefix = "version:";
constexpr std::string_view kTargetPrefix = "update:";
constexpr std::string_view kTarget = "update:target";
// Four parts count, and whether there is a fifth one. A mask in a feed can have millions of parts.
constexpr std::size_t kMaskParts = 5;
// The part of a feed's text that the log shows.
constexpr std::size_t kMaxShownChars = 256;

std::string_view Shown(std::string_view text) { return text.substr(0, kMaxShownChars); }

bool HasOne(const XmlNode& item, std::string_view name) {
  int count = 0;
  for (const XmlNode* child = item.FirstChild(); child; child = child->Next()) {
    count += child->Name() == name ? 1 : 0;
  }
  return count == 1;
}

bool IsTargetSingle(const XmlNode& item) {
  return HasOne(item, "update:version") && HasOne(item, "update:status") &&
         HasOne(item, "update:guid");
}

void AddCandidate(std::string_view version, const XmlNode& item, std::vector<Candidate>* to) {
  to->push_back({ParseVersion(version), to->size(), &item});
}

// Takes the highest candidate out, and with it the others of that version: of these the last in the
// feed counts.
Candidate TakeHighest(std::vector<Candidate>* heap) {
  const Candidate highest = heap->front();
  while (!heap->empty() && heap->front().version == highest.version) {
    std::pop_heap(heap->begin(), heap->end());
    heap->pop_back();
  }
  return highest;
}

std::string_view ChildText(const XmlNode& item, std::string_view prefix, std::string_view name) {
  return TextOf(item.FindChild(std::string(prefix).append(name)));
}

std::string_view Prefix(const UpdateInfo& update) {
  return update.isTarget ? kTargetPrefix : kCommonPrefix;
}

}  // namespace

void UpdateInfo::LogI() const {
  LOG_I << "Found " << (isTarget ? "target" : "common") << " version: " << Shown(version) << ", "
        << Shown(status);
}

bool ItemLog::Takes(Line line) {
  if (written_ & line) return false;
  written_ |= line;
  return left_ > 0 && left_-- > 0;
}

bool RssParser::IsUpgradeAvailable(TAppInfo2& app, XmlNode feed, std::uint64_t now) {
  if (feed.Name() != "rss") {
    throw std::invalid_argument("bad xml: root node name is not 'rss' but " +
                                std::string(Shown(feed.Name())));
  }
  feed_ = std::move(feed);
  common_.clear();
  target_.clear();
  result_.clear();
  log_ = {};
  current_ = MakeVersion(app.VerMajor(), app.VerMinor(), app.VerSubver(), app.VerBuild());
  LOG_I << "Current version: " << FormatVersion(current_);
  if (!FillUpdateList(app.AppId(), app.Platform())) return false;

  bool isCurrentListed = false;
  const UpdateInfo update = FindUpdate(app.WantUnstableToo(), &isCurrentListed);
  // FindUpdate finds nothing whenever it meets the current version, so this never happens so far.
  if (isCurrentListed && update.item && app.GetVersionStatus() != VS_RELEASE &&
      ParseVersionStatus(update.status) == VS_RELEASE) {
    app.SetVersionStatus(VS_RELEASE);
  }
  if (!update.item) {
    app.UpdateLastCheckTime(now);
    LOG_I << "No update founded.";
    return false;
  }
  update.LogI();
  LOG_I << "Update founded...";
  FillResult(update, app.Locale());
  return true;
}

bool RssParser::FillUpdateList(std::string_view appId, std::string_view platform) {
  const XmlNode* channel = feed_.FindChild("channel");
  const XmlNode* item = channel ? channel->FirstChild() : nullptr;
  for (; item; item = item->Next()) {
    if (item->Name() != "item") continue;
    ItemParts parts;
    if (!FindParts(*item, appId, platform, &parts)) continue;
    log_.BeginItem();
    const bool isTargeted = parts.target && AreWeTarget(parts.target);
    const bool isSingle = isTargeted && IsTargetSingle(*item);
    if (isSingle) AddCandidate(ChildText(*item, kTargetPrefix, "version"), *item, &target_);
    AddCandidate(TextOf(parts.version), *item, &common_);
    // Such an item does not say which of its updates is meant, so the feed as a whole is refused.
    if (isTargeted && !isSingle) {
      LOG_E << "RSS <item> have multiple (or empty) targets URL/status/version.";
      LOG_E << "Update stopped.";
      return false;
    }
  }
  return true;
}

UpdateInfo RssParser::FindUpdate(bool wantUnstable, bool* isCurrentListed) {
  const bool isTarget = !target_.empty();
  LOG_I << "Will use " << (isTarget ? "target" : "common") << " update.";
  const std::string_view prefix = isTarget ? kTargetPrefix : kCommonPrefix;
  // A heap, because of many candidates only the highest are looked at.
  std::vector<Candidate>& heap = isTarget ? target_ : common_;
  std::make_heap(heap.begin(), heap.end());
  while (!heap.empty()) {
    const auto [version, position, item] = TakeHighest(&heap);
    log_.BeginItem();
    if (log_.Takes(ItemLog::kVersion)) LOG_D << "Try to check ver: " << FormatVersion(version);
    // All that follow are lower, so the first one that is not newer ends the search.
    *isCurrentListed = version == current_;
    if (version <= current_) return {};
    const std::string_view status = ChildText(*item, prefix, "status");
    if (ParseVersionStatus(status) >= VS_RELEASE || wantUnstable) {
      return {ChildText(*item, prefix, "version"), status, isTarget, item};
    }
  }
  return {};
}

bool RssParser::AreWeTarget(const XmlNode* target) {
  std::vector<std::string> lowParts;
  std::vector<std::string> highParts;
  // The range is shown as the numbers of its low 32 bits.
  const auto isInRange = [&] {
    const VersionNumber low = MaskToVersion(lowParts, 0);
    const VersionNumber high = MaskToVersion(highParts, 0xFFFF);
    if (log_.Takes(ItemLog::kTried)) {
      LOG_D << "Try to check in: " << static_cast<std::uint32_t>(low) << " - "
            << static_cast<std::uint32_t>(high);
    }
    return low <= current_ && current_ <= high;
  };
  for (; target; target = target->Next()) {
    if (target->Name() != kTarget) continue;
    const std::string_view mask = target->Text();
    const std::string_view begin = target->Attribute("begin");
    const std::string_view end = target->Attribute("end");
    if (!mask.empty()) {
      if (log_.Takes(ItemLog::kMask)) LOG_D << "Target version: " << Shown(mask);
      ParseVersionMask(mask, &lowParts, kMaskParts);
      highParts = lowParts;
      // Four parts name one version. Fewer name a range, in which the missing parts run from 0 to
      // 65535.
      const bool isOneVersion = lowParts.size() == 4;
      if (isOneVersion ? MaskToVersion(lowParts, 0) == current_ : isInRange()) return true;
    } else if (!begin.empty() || !end.empty()) {
      ParseVersionMask(begin, &lowParts, kMaskParts);
      ParseVersionMask(end, &highParts, kMaskParts);
      if (log_.Takes(ItemLog::kRange)) {
        LOG_D << "Target version range: " << Shown(begin) << " - " << Shown(end);
      }
      if (isInRange()) return true;
    } else if (log_.Takes(ItemLog::kEmpty)) {
      LOG_I << "The empty <update:target> unacceptable. Please try to set value, or begin/end "
               "attribute.";
    }
  }
  return false;
}

void RssParser::FillResult(const UpdateInfo& update, std::string_view locale) {
  const XmlNode& item = *update.item;
  const std::string_view prefix = Prefix(update);
  result_["upd_ver"] = update.version;
  result_["upd_stat"] = update.status;
  for (const FeedField& field : kFeedFields) {
    std::string_view& value = result_[field.key];
    if (field.source == FieldSource::kOwn) value = ChildText(item, prefix, field.element);
    if (field.source == FieldSource::kCommon) value = ChildText(item, kCommonPrefix, field.element);
  }
  result_[key::kDistroUrl] = TextOf(item.FindChild(update.isTarget ? "update:guid" : "guid"));
  FillDialogs(update, locale);
  FillTexts(update);
}

void RssParser::FillDialogs(const UpdateInfo& update, std::string_view locale) {
  const std::string_view prefix = Prefix(update);
  std::string_view style = "local";
  DatedUrl dialogs = GetLocalDlgUrl(*update.item, prefix, locale);
  if (dialogs.url.empty()) {
    dialogs = GetArchiveUrl(*update.item, prefix, "dlgs");
    style = dialogs.url.empty() ? "" : "static";
  }
  const DatedUrl texts = GetArchiveUrl(*update.item, prefix, "locale");
  result_[key::kDialogsUrl] = dialogs.url;
  result_[key::kDialogsDate] = dialogs.date;
  result_[key::kDialogsStyle] = style;
  result_[key::kLocaleUrl] = texts.url;
  result_[key::kLocaleDate] = texts.date;
}

void RssParser::FillTexts(const UpdateInfo& update) {
  const XmlNode& item = *update.item;
  // A targeted update's own text, else the one that the item has for all.
  const auto ownOrCommon = [&](std::string_view name) {
    const std::string_view own = update.isTarget ? ChildText(item, kTargetPrefix, name) : "";
    return own.empty() ? TextOf(item.FindChild(name)) : own;
  };
  result_[key::kTitle] = ownOrCommon("title");
  // Unlike title and link, a targeted update takes no description from the common one.
  result_[key::kDescription] = ChildText(item, update.isTarget ? kTargetPrefix : "", "description");
  result_[key::kHomepage] = ownOrCommon("link");
}

bool RssParser::IsCompatibleVersion(std::string_view ver) {
  if (ver.empty() || ver == "1.0") return true;
  if (log_.Takes(ItemLog::kDialogs)) LOG_D << "Incompatible version of dialogs. Should be 1.0.";
  return false;
}

DatedUrl RssParser::GetLocalDlgUrl(const XmlNode& item, std::string_view prefix,
                                   std::string_view locale) {
  const std::string name = std::string(prefix).append("local_dlgs");
  DatedUrl fallback;
  for (const XmlNode* child = item.FirstChild(); child; child = child->Next()) {
    if (child->Name() != name || !IsCompatibleVersion(child->Attribute("ver"))) continue;
    const DatedUrl dialogs = {child->Text(), child->Attribute("date")};
    const std::string_view language = child->Attribute("lang");
    if (language == locale) {
      LOG_D << "Locale dialogs founded. url: " << Shown(dialogs.url);
      return dialogs;
    }
    if (language.empty()) fallback = dialogs;
  }
  return fallback;
}

DatedUrl RssParser::GetArchiveUrl(const XmlNode& item, std::string_view prefix,
                                  const std::string& name) {
  const XmlNode* archive = item.FindChild(std::string(prefix).append(name));
  if (!archive) return {};
  std::string_view ver = archive->Attribute("ver");
  std::string_view date = archive->Attribute("date");
  // A feed may also give them as elements of their own.
  if (ver.empty()) ver = ChildText(item, prefix, name + "-ver");
  if (date.empty()) date = ChildText(item, prefix, name + "-date");
  return IsCompatibleVersion(ver) ? DatedUrl{archive->Text(), date} : DatedUrl{};
}
