#include "update/upd_info.h"

#include <memory>
#include <string_view>
#include <utility>

#include "update/rss_parser.h"
#include "update/version_number.h"
#include "util/mutex.h"
#include "util/text.h"

namespace {

// "&nbsp;" gives the one byte 0xA0 whatever the code page is; here it becomes the UTF-8 character,
// where it is not a part of another one.
std::string WithWholeSpaces(std::string_view bytes) {
  std::string text;
  int missing = 0;  // bytes until the current character is whole
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (missing == 0 && byte == 0xA0) text += '\xC2';
    text += c;
    const bool continues = missing > 0 && (byte & 0xC0) == 0x80;
    missing = continues ? missing - 1 : byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
  }
  return text;
}

std::string Utf8FromFeed(std::string_view bytes, const XmlNode& feed) {
  if (!feed.DeclaresCodePage() || feed.CodePage() == kCodePageUtf8) {
    std::string text = WithWholeSpaces(bytes);
    if (IsValidUtf8(text)) return text;
  }
  return Utf8FromCp1251(bytes);
}

// The values that are texts, in the order in which they are written.
constexpr struct {
  std::string_view key;
  bool isDecoded;
} kTexts[] = {{"DistroUrl", false},       {"DistroMD5", false},        {"DistroArgs", false},
              {"DistroStarter", true},    {"MSIArgs", true},           {"DlgsArchiveUrl", false},
              {"DlgsArchiveDate", false}, {"DlgsArchiveStyle", false}, {"Title", true},
              {"Description", true},      {"Platform", false},         {"Favicon", false},
              {"LocaleUrl", false},       {"LocaleDate", false},       {"UACDlg", false}};

std::uint16_t PartOf(VersionNumber version, int shift) {
  return static_cast<std::uint16_t>(version >> shift);
}

}  // namespace

TUpdInfo::TUpdInfo(const std::string& appId)
    : TAppInfo2(appId, std::make_unique<Mutex>(
                           WidenUtf8("UPDINFO{2E443525-B2F5-4833-893E-B4550BA6AF01}-" + appId))) {}

std::string TUpdInfo::Path() const { return PathOf("updinfo.xml"); }

bool TUpdInfo::Evaluate(TAppInfo2& app, XmlNode feed, std::uint64_t now) {
  RssParser parser;
  if (!parser.IsUpgradeAvailable(app, std::move(feed), now)) return false;
  const UpdateResult& result = parser.Result();
  const VersionNumber version = ParseVersion(result.at("upd_ver"));
  SetVersion(PartOf(version, 48), PartOf(version, 32), PartOf(version, 16), PartOf(version, 0));
  SetVersionStatus(ParseVersionStatus(result.at("upd_stat")));
  for (const auto& text : kTexts) {
    const std::string_view value = result.at(text.key);
    Write(text.key, text.isDecoded ? Utf8FromFeed(value, parser.Feed()) : std::string(value));
  }
  WriteNumber("DistroSize", ParseInt64(result.at("DistroSize")));
  Write("Homepage", result.at("Homepage"));
  app.UpdateLastCheckTime(now);
  return true;
}
