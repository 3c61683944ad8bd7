#include "layout/names.h"

#include "util/text.h"

// Libraries and executors of different versions meet under these names, so they never change; the
// system tells their letters' case apart.
std::wstring StatisticsMutexName(const std::string& appId) {
  return L"STATISTIC{2B8F4B48-C2C5-4985-B7EB-B8818DDBBEC4}-" + WidenUtf8(appId);
}

std::wstring RecordMutexName(const std::string& appId) {
  return L"APPINFO{65438470-A93E-4c32-83C0-33BFC5DDD428}-" + WidenUtf8(appId);
}

std::wstring UpdateMutexName(const std::string& appId) {
  return L"UPDINFO{2E443525-B2F5-4833-893E-B4550BA6AF01}-" + WidenUtf8(appId);
}

std::wstring ResultEventName(const std::string& appId) {
  return L"{611172A1-0EBC-49e8-A150-3052CE9F113A}-32-" + WidenUtf8(appId);
}
