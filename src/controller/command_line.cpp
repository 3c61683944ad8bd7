#include "controller/command_line.h"

#include "util/text.h"

std::wstring QuotedPath(const std::wstring& path) {
  if (!path.empty() && path[0] == L'"') return path;
  return L'"' + path + L'"';
}

std::wstring UpdateCheckArguments(const std::wstring& appId, const std::wstring& resultFile) {
  return L" --appid " + appId + L" --update-check --file " + QuotedPath(resultFile);
}

std::wstring PingArguments(const std::wstring& appId, int callbackId, bool suicide) {
  return (suicide ? L" --suicide --stat-callback " : L" --stat-callback ") +
         WidenUtf8(DecimalText(callbackId)) + L" --appid " + appId;
}

std::wstring SilentUpdateCommandLine(const std::wstring& executor, const std::wstring& appId) {
  return executor + L" --appid " + appId + L" --silent-update-check";
}

std::wstring ResultEventName(const std::wstring& appId) {
  return L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + appId;
}
