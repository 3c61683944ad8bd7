#include "update/upd_info.h"

#include <memory>
#include <string_view>
#include <utility>

#include "appinfo/version_number.h"
#include "layout/file_names.h"
#include "layout/keys.h"
#include "layout/names.h"
#include "update/feed_fields.h"
#include "update/rss_parser.h"
#include "util/log_line.h"
#include "util/mutex.h"
#include "util/text.h"

namespace {

// More than people read in a description. A feed cannot use a store to keep large data in.
constexpr std::size_t kMaxTextBytes = 64 << 10;

// A reference gives a single byte, whatever the code page is ("&nbsp;" A0, "&#169;" A9). Where it
// is not a part of a character, it becomes the character of that number.
// @param strays  receives the number of such bytes other than A0
std::string WithWholeChars(std::string_view bytes, std::size_t* strays) {
  std::string text;
  *strays = 0;
  while (!bytes.empty()) {
    const std::size_t length = Utf8CharLength(bytes);
    if (length > 0) {
      text += bytes.substr(0, length);
    } else {
      const auto byte = static_cast<unsigned char>(bytes[0]);
      text += static_cast<char>(0xC0 | byte >> 6);
      text += static_cast<char>(0x80 | (byte & 0x3F));
      *strays += byte == 0xA0 ? 0 : 1;
    }
    bytes.remove_prefix(length > 0 ? length : 1);
  }
  return text;
}

std::string Utf8FromFeed(std::string_view bytes, const XmlNode& feed) {
  const bool isUtf8 = feed.DeclaresCodePage() && feed.CodePage() == kCodePageUtf8;
  if (isUtf8 || !feed.DeclaresCodePage()) {
    std::size_t strays = 0;
    std::string text = WithWholeChars(bytes, &strays);
    if (isUtf8 || strays == 0) return text;
  }
  return Utf8FromCp1251(bytes);
}

bool IsInsideChar(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

void Shorten(std::string_view key, std::string* text) {
  if (text->size() <= kMaxTextBytes) return;
  constexpr std::size_t kMaxCharBytes = 4;
  std::size_t end = kMaxTextBytes;
  while (IsInsideChar((*text)[end]) && end > kMaxTextBytes - kMaxCharBytes) --end;
  LogAs("TUpdInfo::Evaluate", __LINE__, "W:")
      << "A text of the feed is cut, it has so many bytes:" << text->size() << key;
  text->resize(end);
}

std::uint16_t PartOf(VersionNumber version, int shift) {
  return static_cast<std::uint16_t>(version >> shift);
}

}  // namespace

TUpdInfo::TUpdInfo(const std::string& appId)
    : TAppInfo2(appId, std::make_unique<Mutex>(UpdateMutexName(appId))) {}

std::string TUpdInfo::Path() const { return PathOf(kUpdateFile); }

bool TUpdInfo::Evaluate(TAppInfo2& app, XmlNode feed, std::uint64_t now) {
  RssParser parser;
  if (!parser.IsUpgradeAvailable(app, std::move(feed), now)) return false;
  const UpdateResult& result = parser.Result();
  const VersionNumber version = ParseVersion(result.at("upd_ver"));
  const auto writeText = [&](std::string_view key, std::string text) {
    Shorten(key, &text);
    Write(key, text);
  };
  {
    const StoreChanges one(*this);
    // A version from a feed may have parts above 16 bits, which spill into the next one. They are
    // stored as the parts of the number.
    SetVersion(PartOf(version, 48), PartOf(version, 32), PartOf(version, 16), PartOf(version, 0));
    SetVersionStatus(ParseVersionStatus(result.at("upd_stat")));
    for (const FeedField& field : kFeedFields) {
      const std::string_view value = result.at(field.key);
      if (field.form == FieldForm::kNumber) {
        WriteNumber(field.key, ParseInt64(value));
      } else {
        const bool isDecoded = field.form == FieldForm::kDecoded;
        writeText(field.key, isDecoded ? Utf8FromFeed(value, parser.Feed()) : std::string(value));
      }
    }
  }
  // After the update is stored: a kill in between leads to another check.
  app.UpdateLastCheckTime(now);
  return true;
}
