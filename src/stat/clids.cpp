#include "stat/clids.h"

#include <charconv>
#include <utility>

#include "layout/folders.h"
#include "stat/uuid.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/log_line.h"
#include "util/text.h"
#include "xml/xml_node.h"

namespace {

constexpr std::string_view kClid = "clid";
constexpr std::size_t kMaxVendorChars = 254;
// Any user of the machine can write such an identifier. A longer one would leave no room for the
// report itself.
constexpr std::size_t kMaxCommonChars = 254;
// Real files have a few hundred bytes; the tree of one many times this size could take all memory
// of the host.
constexpr std::size_t kMaxFileBytes = 1 << 20;

// The number of an element "clid12"; 0 for any other name.
int NumberOf(std::string_view name) {
  if (!name.starts_with(kClid)) return 0;
  name.remove_prefix(kClid.size());
  int number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  const bool whole = error == std::errc() && end == name.data() + name.size();
  return whole && number > 0 ? number : 0;
}

// Any user of the machine can make the files of all users, so their text must stay one value of the
// address.
std::string PercentEncoded(std::string_view text) {
  constexpr std::string_view kUnreserved =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    if (kUnreserved.find(c) != kUnreserved.npos) {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return encoded;
}

// The application whose identifiers also count for this one; empty for most.
std::string_view OtherFlavour(std::string_view appId) {
  if (appId == "zonie") return "zonie64";
  if (appId == "zonie64") return "zonie";
  return {};
}

}  // namespace

std::vector<TClids::Candidate> TClids::Candidates() const {
  std::vector<Candidate> files;
  const std::string_view other = OtherFlavour(appId_);
  const auto addFolder = [&](const std::string& folder, bool isOfAllUsers) {
    if (folder.empty()) return;
    const std::string prefix = folder + "clids-";
    files.push_back({prefix + appId_ + ".xml", isOfAllUsers});
    if (!other.empty()) files.push_back({prefix + std::string(other) + ".xml", isOfAllUsers});
    files.push_back({folder + "vendor.xml", isOfAllUsers});
  };
  addFolder(GetMakerFolder(), false);
  addFolder(GetCommonMakerFolder(), true);
  return files;
}

std::string TClids::ReadClids() {
  LOG_D << "Try to read clids for AppId: " << appId_;
  for (const auto& [path, isOfAllUsers] : Candidates()) {
    LOG_D << "Try to read clids from: " << path;
    ParseFile(path);
    const Clid& clid = slots_[0];
    if (clid.text.empty()) continue;
    const std::string identifier = clid.vid.empty() ? clid.text : clid.text + "-" + clid.vid;
    if (!isOfAllUsers) return identifier;
    std::string encoded = PercentEncoded(identifier);
    if (encoded.size() <= kMaxCommonChars) return encoded;
    LOG_W << "The identifier is too long:" << path;
  }
  return {};
}

void TClids::ParseFile(const std::string& path) {
  slots_ = {};
  numbered_.clear();
  std::string bytes;
  if (FileSystem::ReadFileIfAny(path, &bytes, kMaxFileBytes) != FileSystem::ReadOutcome::kRead) {
    return;
  }
  XmlNode root;
  // A cut file must not hide the whole one that comes behind it.
  if (!LoadXml(std::move(bytes), &root)) return;
  for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
    const XmlNode* const node = root.FindChild(std::string(kClid) + static_cast<char>('1' + slot));
    if (node) slots_[slot] = {std::string(node->Text()), std::string(node->Attribute("vid"))};
  }
  for (const XmlNode* node = root.FirstChild(); node; node = node->Next()) {
    const int number = NumberOf(node->Name());
    if (number == 0) continue;
    Clid& clid = numbered_[number];
    clid.text = node->Text();
    if (const std::string_view vid = node->Attribute("vid"); !vid.empty()) clid.vid = vid;
  }
  if (root.FindChild("clid1")) LOG_D << "Clid1: " << slots_[0].text;
}

std::string TClids::AppInfoForUrl(std::string_view version, std::string_view platform) {
  const std::string clid = ReadClids();
  LOG_D << "Clid: " << clid << "clid type: " << 0;
  std::string info = "krsoft=" + appId_;
  if (!clid.empty()) info += "&clid=" + clid;
  info += "&ui=" + TUuid::ReadUniqUserId();
  info.append("&ver=").append(version).append("&os=").append(platform);
  if (const std::string vendor = VendorParam(); !vendor.empty()) info += "&vnd-params=" + vendor;
  LOG_D << "URL: " << info;
  return info;
}

std::string TClids::VendorParam() const {
  const std::string folder = GetMakerFolder();
  if (folder.empty()) return {};
  const std::string path = folder + "vendor-specific-urlparam-" + appId_ + ".txt";
  std::string text;
  if (FileSystem::ReadFileIfAny(path, &text, kMaxFileBytes) == FileSystem::ReadOutcome::kFailed) {
    return "vendor-url-retr-failed=yes";
  }
  // The limit is for the text as the installer wrote it.
  if (text.empty() || text.size() > kMaxVendorChars) return {};
  if (text.front() == '?' || text.front() == '&') text.erase(0, 1);
  text.erase(text.find_last_not_of("\r\n") + 1);
  return text;
}
