#include "stat/clids.h"

#include <charconv>
#include <utility>

#include "stat/uuid.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/folders.h"
#include "util/log_line.h"
#include "util/text.h"
#include "xml/xml_node.h"

namespace {

constexpr std::string_view kClid = "clid";
constexpr std::size_t kMaxVendorChars = 254;
// Real files have a few hundred bytes; the tree of one many times this size could take all memory
// of the host.
constexpr std::size_t kMaxFileBytes = 1 << 20;

// The number of an element "clid12"; 0 when it is none.
int NumberOf(std::string_view name) {
  if (!name.starts_with(kClid)) return 0;
  name.remove_prefix(kClid.size());
  int number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  const bool whole = error == std::errc() && end == name.data() + name.size();
  return whole && number > 0 ? number : 0;
}

// The application of which the other flavour's identifiers count too; empty when there is none.
std::string_view OtherFlavour(std::string_view appId) {
  if (appId == "zonie") return "zonie64";
  if (appId == "zonie64") return "zonie";
  return {};
}

}  // namespace

std::vector<std::string> TClids::Candidates() const {
  std::vector<std::string> paths;
  const std::string_view other = OtherFlavour(appId_);
  for (const std::string& folder :
       {GetMakerFolder(), NarrowUtf8(GetCommonAppDataFolder(L"Krelix"))}) {
    if (folder.empty()) continue;
    const std::string prefix = folder + "clids-";
    paths.push_back(prefix + appId_ + ".xml");
    if (!other.empty()) paths.push_back(prefix + std::string(other) + ".xml");
    paths.push_back(folder + "vendor.xml");
  }
  return paths;
}

std::string TClids::ReadClids() {
  LOG_D << "Try to read clids for AppId: " << appId_;
  for (const std::string& path : Candidates()) {
    LOG_D << "Try to read clids from: " << path;
    ParseFile(path);
    const Clid& clid = slots_[0];
    if (!clid.text.empty()) return clid.vid.empty() ? clid.text : clid.text + "-" + clid.vid;
  }
  return {};
}

void TClids::ParseFile(const std::string& path) {
  slots_ = {};
  numbered_.clear();
  std::string bytes = FileSystem::ReadFile(path);
  if (bytes.size() > kMaxFileBytes) {
    LOG_E << "Too large: " << path;
    return;
  }
  XmlNode root;
  LoadXml(std::move(bytes), &root);
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
  std::string path = GetMakerFolder();
  if (!path.empty()) path += "vendor-specific-urlparam-" + appId_ + ".txt";
  std::string text;
  if (FileSystem::ReadFile(path, &text) == FileSystem::ReadOutcome::kFailed) {
    return "vendor-url-retr-failed=yes";
  }
  if (text.empty() || text.size() > kMaxVendorChars) return {};
  if (text.front() == '?' || text.front() == '&') text.erase(0, 1);
  text.erase(text.find_last_not_of("\r\n") + 1);
  return text;
}
