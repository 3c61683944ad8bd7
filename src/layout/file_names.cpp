#include "layout/file_names.h"

#include "util/text.h"

namespace {

constexpr std::string_view kBlockPrefix = "in_work_";

}  // namespace

std::string BlockFile(int blockId) {
  return std::string(kBlockPrefix) + DecimalText(blockId) + ".xml";
}

std::optional<int> BlockIdOfFile(std::string_view fileName) {
  if (!fileName.starts_with(kBlockPrefix)) return {};
  const std::int64_t id = ParseInt64(fileName.substr(kBlockPrefix.size()));
  // Compares with the one spelling of each number: "in_work_07.xml" is no file of ours.
  if (id < 0 || id > kLastBlockId || fileName != BlockFile(static_cast<int>(id))) return {};
  return static_cast<int>(id);
}

std::wstring LogFile(const std::string& appId) {
  std::wstring name = L"kupdate-exec-" + WidenUtf8(appId) + L".log";
  // The id becomes part of the file's name and must not become part of its folder.
  for (wchar_t& c : name) {
    if (std::wstring_view(L"\\/:*?\"<>|").find(c) != std::wstring_view::npos) c = L'_';
  }
  return name;
}

std::wstring ScheduledFeedFile(const std::string& appId) {
  return L"kupdate-versioninfo-" + WidenUtf8(appId) + L".xml";
}

std::wstring HostFeedFile(const std::string& appId) { return WidenUtf8(appId) + L"-version.rss"; }

std::wstring ReportAnswerFile(const std::string& appId) {
  return L"kupdate-ping-" + WidenUtf8(appId) + L".temp";
}
