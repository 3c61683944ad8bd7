#include "install/trust_text.h"

#include <algorithm>

#include "install/p256.h"

namespace {

constexpr std::string_view kFirstLine = "kupdate-trust 1";
constexpr std::string_view kPublisher = "publisher: ";
constexpr std::string_view kKey = "key: ";
constexpr std::string_view kFor = "for: ";

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

bool IsValue(std::string_view text) {
  return !text.empty() && std::none_of(text.begin(), text.end(), IsControl);
}

// Reads one line into `trust`; false for a line that has no meaning where it stands.
bool ReadLine(std::string_view line, TrustAnchors* trust) {
  const auto valueOf = [&](std::string_view field) {
    const std::string_view value = line.starts_with(field) ? line.substr(field.size()) : "";
    return IsValue(value) ? std::string(value) : std::string();
  };
  if (std::string name = valueOf(kPublisher); !name.empty() && trust->publisher.empty()) {
    trust->publisher = std::move(name);
  } else if (std::string key = valueOf(kKey); PublicKeyFromBase64(key)) {
    trust->publicKeys.push_back({std::move(key), {}});
  } else if (std::string app = valueOf(kFor); !app.empty() && !trust->publicKeys.empty()) {
    trust->publicKeys.back().apps.push_back(std::move(app));
  } else {
    return false;
  }
  return true;
}

}  // namespace

std::optional<TrustAnchors> ParseTrust(std::string_view text) {
  TrustAnchors trust;
  bool isFirst = true;
  do {
    const std::size_t end = text.find('\n');
    if (end == text.npos) return {};
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 1);
    if (isFirst ? line != kFirstLine : !line.empty() && !ReadLine(line, &trust)) return {};
    isFirst = false;
  } while (!text.empty());
  return trust;
}

std::optional<std::string> FormatTrust(const TrustAnchors& trust) {
  std::string text(kFirstLine);
  bool areValues = true;
  const auto add = [&](std::string_view field, const std::string& value) {
    areValues = areValues && IsValue(value);
    text.append("\n").append(field).append(value);
  };
  if (!trust.publisher.empty()) add(kPublisher, trust.publisher);
  for (const PublisherKey& publisher : trust.publicKeys) {
    add(kKey, publisher.key);
    for (const std::string& app : publisher.apps) add(kFor, app);
  }
  if (!areValues || text.size() >= kTrustBytes) return {};
  text.resize(kTrustBytes, '\n');
  return text;
}
