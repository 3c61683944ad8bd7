#include "controller/command_line.h"

#include <stdexcept>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

std::wstring Checked(const std::wstring& appId) {
  if (IsPlainId(appId)) return appId;
  LOG_E << "The application id cannot stand in a command line:" << appId;
  throw std::invalid_argument("bad application id");
}

}  // namespace

bool IsPlainId(std::wstring_view appId) {
  return appId.find(L'"') == appId.npos && appId.find(L" --") == appId.npos &&
         !appId.starts_with(L"--");
}

std::wstring QuotedPath(const std::wstring& path) {
  if (!path.empty() && path[0] == L'"') return path;
  return L'"' + path + L'"';
}

std::wstring UpdateCheckArguments(const std::wstring& appId, const std::wstring& resultFile) {
  return L" --appid " + Checked(appId) + L" --update-check --file " + QuotedPath(resultFile);
}

std::wstring PingArguments(const std::wstring& appId, int callbackId, bool suicide) {
  return (suicide ? L" --suicide --stat-callback " : L" --stat-callback ") +
         WidenUtf8(DecimalText(callbackId)) + L" --appid " + Checked(appId);
}

std::wstring SilentUpdateCommandLine(const std::wstring& executor, const std::wstring& appId) {
  return executor + L" --appid " + Checked(appId) + L" --silent-update-check";
}

std::wstring ResultEventName(const std::wstring& appId) {
  return L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + appId;
}
