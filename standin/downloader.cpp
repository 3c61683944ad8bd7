#include "standin/downloader.h"

#include <vector>

#include "util/win/unique.h"
// After the system's header, which they need.
#include <bits.h>
#include <winhttp.h>

namespace standin {
namespace {

using Kind = DownloadResult::Kind;

constexpr int kTimeoutMilliseconds = 30'000;
constexpr std::size_t kBlockBytes = 65'536;

struct InternetTraits {
  using Type = HINTERNET;
  static Type None() { return nullptr; }
  static void Close(Type handle) { ::WinHttpCloseHandle(handle); }
};
using UniqueInternet = Unique<InternetTraits>;

struct Address {
  std::wstring host;
  std::wstring object;  // path and query
  INTERNET_PORT port = 0;
  bool secure = false;
};

std::optional<Address> ParseUrl(const std::wstring& url) {
  URL_COMPONENTS parts = {};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
  if (!::WinHttpCrackUrl(url.c_str(), static_cast<DWORD>(url.size()), 0, &parts))
    return std::nullopt;
  if (parts.dwHostNameLength == 0) return std::nullopt;
  Address address;
  address.host.assign(parts.lpszHostName, parts.dwHostNameLength);
  address.object.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
  address.object.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  address.object.erase(std::min(address.object.find(L'#'), address.object.size()));
  address.port = parts.nPort;
  address.secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  return address;
}

DownloadResult Interrupted(DWORD error) {
  return {Kind::kInterrupted, CodeOfSystemError(error), BG_ERROR_CONTEXT_GENERAL_TRANSPORT,
          "the connection failed with system error " + std::to_string(error)};
}

// BITS keeps HTTP statuses in a facility of their own.
HResult CodeOfStatus(DWORD status) { return static_cast<HResult>(0x80190000UL | status); }

DownloadResult Unwelcome(DWORD status) {
  const Kind kind = status >= 500 ? Kind::kInterrupted : Kind::kRefused;
  return {kind, CodeOfStatus(status), BG_ERROR_CONTEXT_REMOTE_FILE,
          "the server answers with status " + std::to_string(status)};
}

std::optional<DWORD> NumericHeader(HINTERNET request, DWORD header) {
  DWORD value = 0;
  DWORD size = sizeof value;
  if (!::WinHttpQueryHeaders(request, header | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &value, &size,
                             WINHTTP_NO_HEADER_INDEX)) {
    return std::nullopt;
  }
  return value;
}

DownloadResult ReadBody(HINTERNET request, std::optional<std::uint64_t> size,
                        const DownloadSink& sink) {
  std::vector<char> block(kBlockBytes);
  std::uint64_t done = 0;
  for (;;) {
    // Without asking first, a read would wait until the whole block is there.
    DWORD available = 0;
    if (!::WinHttpQueryDataAvailable(request, &available)) return Interrupted(::GetLastError());
    const DWORD wanted = std::min(available, static_cast<DWORD>(block.size()));
    DWORD got = 0;
    if (wanted > 0 && !::WinHttpReadData(request, block.data(), wanted, &got)) {
      return Interrupted(::GetLastError());
    }
    if (got == 0) break;
    if (!sink.take(block.data(), got)) return {Kind::kEndedBySink, 0, 0, {}};
    done += got;
  }
  if (size && done != *size) return Interrupted(ERROR_WINHTTP_CONNECTION_ERROR);
  return {};
}

}  // namespace

bool IsDownloadUrl(const std::wstring& url) { return ParseUrl(url).has_value(); }

DownloadResult Download(const std::wstring& url, const DownloadSink& sink) {
  const std::optional<Address> address = ParseUrl(url);
  if (!address) return Interrupted(ERROR_WINHTTP_INVALID_URL);
  const UniqueInternet session(::WinHttpOpen(L"kupdate-standin/1.0", WINHTTP_ACCESS_TYPE_NO_PROXY,
                                             WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  if (!session) return Interrupted(::GetLastError());
  ::WinHttpSetTimeouts(session.get(), kTimeoutMilliseconds, kTimeoutMilliseconds,
                       kTimeoutMilliseconds, kTimeoutMilliseconds);
  const UniqueInternet connection(
      ::WinHttpConnect(session.get(), address->host.c_str(), address->port, 0));
  if (!connection) return Interrupted(::GetLastError());
  const UniqueInternet request(::WinHttpOpenRequest(
      connection.get(), L"GET", address->object.c_str(), nullptr, WINHTTP_NO_REFERER,
      WINHTTP_DEFAULT_ACCEPT_TYPES, address->secure ? WINHTTP_FLAG_SECURE : 0));
  if (!request || !::WinHttpSendRequest(request.get(), nullptr, 0, nullptr, 0, 0, 0) ||
      !::WinHttpReceiveResponse(request.get(), nullptr)) {
    return Interrupted(::GetLastError());
  }
  const std::optional<DWORD> status = NumericHeader(request.get(), WINHTTP_QUERY_STATUS_CODE);
  if (!status) return Interrupted(::GetLastError());
  if (*status != HTTP_STATUS_OK) return Unwelcome(*status);
  const std::optional<DWORD> length = NumericHeader(request.get(), WINHTTP_QUERY_CONTENT_LENGTH);
  const std::optional<std::uint64_t> size(length);
  if (!sink.begin(size)) return {Kind::kEndedBySink, 0, 0, {}};
  return ReadBody(request.get(), size, sink);
}

}  // namespace standin
