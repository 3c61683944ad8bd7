#include "standin/downloader.h"

#include <vector>

#include "util/text.h"
#include "util/win/unique.h"
// After the system's header, which they need.
#include <bits.h>
#include <bitsmsg.h>
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
  // A length of -1 asks for a pointer into `url` instead of a copy.
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
  if (!::WinHttpCrackUrl(url.c_str(), static_cast<DWORD>(url.size()), 0, &parts))
    return std::nullopt;
  if (parts.dwHostNameLength == 0) return std::nullopt;
  Address address;
  address.host.assign(parts.lpszHostName, parts.dwHostNameLength);
  address.object.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
  address.object.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  // A fragment is for the client alone.
  address.object.erase(std::min(address.object.find(L'#'), address.object.size()));
  address.port = parts.nPort;
  address.secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  return address;
}

DownloadResult Interrupted(DWORD error) {
  return {Kind::kInterrupted, CodeOfSystemError(error), BG_ERROR_CONTEXT_GENERAL_TRANSPORT,
          "the connection failed with system error " + std::to_string(error)};
}

// The service keeps HTTP statuses in a facility of their own.
HResult CodeOfStatus(DWORD status) { return static_cast<HResult>(0x80190000UL | status); }

// The real service does not document which statuses it tries again. Here these are the errors of a
// server that may recover; 501 is one that cannot.
DownloadResult Unwelcome(DWORD status) {
  const bool mayPass = status >= 500 && status != HTTP_STATUS_NOT_SUPPORTED;
  const Kind kind = mayPass ? Kind::kInterrupted : Kind::kRefused;
  return {kind, CodeOfStatus(status), BG_ERROR_CONTEXT_REMOTE_FILE,
          "the server answers with status " + std::to_string(status)};
}

// Numbers of 32 bits: a file of 4 GiB or more counts as one without a size. Tests have none.
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
    // A read alone would wait until the whole block is there, and clients would see no progress on
    // a slow connection.
    DWORD available = 0;
    if (!::WinHttpQueryDataAvailable(request, &available)) return Interrupted(::GetLastError());
    const DWORD wanted = std::min(available, static_cast<DWORD>(block.size()));
    DWORD got = 0;
    if (wanted > 0 && !::WinHttpReadData(request, block.data(), wanted, &got)) {
      return Interrupted(::GetLastError());
    }
    // No bytes: the body ends here, or the connection does. The size shows which of them.
    if (got == 0) break;
    if (!sink.take(block.data(), got)) return {Kind::kEndedBySink, 0, 0, {}};
    done += got;
  }
  if (size && done != *size) return Interrupted(ERROR_WINHTTP_CONNECTION_ERROR);
  return {};
}

UniqueInternet OpenRequest(HINTERNET connection, const Address& address, const wchar_t* method) {
  return UniqueInternet(::WinHttpOpenRequest(connection, method, address.object.c_str(), nullptr,
                                             WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                             address.secure ? WINHTTP_FLAG_SECURE : 0));
}

// Sends the request and waits for an answer with status 200.
DownloadResult Ask(HINTERNET request) {
  if (!request || !::WinHttpSendRequest(request, nullptr, 0, nullptr, 0, 0, 0) ||
      !::WinHttpReceiveResponse(request, nullptr)) {
    return Interrupted(::GetLastError());
  }
  const std::optional<DWORD> status = NumericHeader(request, WINHTTP_QUERY_STATUS_CODE);
  if (!status) return Interrupted(::GetLastError());
  return *status == HTTP_STATUS_OK ? DownloadResult() : Unwelcome(*status);
}

bool OffersRanges(HINTERNET request) {
  // A longer value does not fit and counts as no ranges, which is right: only "bytes" will do.
  wchar_t unit[16] = L"";
  DWORD size = sizeof unit;
  return ::WinHttpQueryHeaders(request, WINHTTP_QUERY_ACCEPT_RANGES, WINHTTP_HEADER_NAME_BY_INDEX,
                               unit, &size, WINHTTP_NO_HEADER_INDEX) &&
         EqualsIgnoreCase(std::wstring_view(unit), L"bytes");
}

DownloadResult Unfit(unsigned long code, const char* text) {
  return {Kind::kRefused, static_cast<HResult>(code), BG_ERROR_CONTEXT_REMOTE_FILE, text};
}

DownloadResult WithoutSize() {
  return Unfit(BG_E_MISSING_FILE_SIZE, "the server does not give the size of the file");
}

// The real service asks by HEAD first, and refuses a server that could not resume a transfer.
DownloadResult CheckServer(HINTERNET connection, const Address& address) {
  const UniqueInternet request = OpenRequest(connection, address, L"HEAD");
  DownloadResult asked = Ask(request.get());
  if (asked.kind != Kind::kDone) return asked;
  if (!NumericHeader(request.get(), WINHTTP_QUERY_CONTENT_LENGTH)) return WithoutSize();
  if (OffersRanges(request.get())) return {};
  return Unfit(BG_E_INSUFFICIENT_RANGE_SUPPORT, "the server does not offer ranges of the file");
}

DownloadResult GetFile(HINTERNET connection, const Address& address, ServerRule rule,
                       const DownloadSink& sink) {
  const UniqueInternet request = OpenRequest(connection, address, L"GET");
  DownloadResult asked = Ask(request.get());
  if (asked.kind != Kind::kDone) return asked;
  const std::optional<std::uint64_t> size =
      NumericHeader(request.get(), WINHTTP_QUERY_CONTENT_LENGTH);
  if (!size && rule == ServerRule::kStatic) return WithoutSize();
  // Before the first byte: a file that is too large for its job must not be fetched at all.
  if (!sink.begin(size)) return {Kind::kEndedBySink, 0, 0, {}};
  return ReadBody(request.get(), size, sink);
}

}  // namespace

bool IsDownloadUrl(const std::wstring& url) { return ParseUrl(url).has_value(); }

DownloadResult Download(const std::wstring& url, ServerRule rule, const DownloadSink& sink) {
  const std::optional<Address> address = ParseUrl(url);
  // Jobs accept valid addresses only, so this one comes from an edited file of jobs.
  if (!address) return Interrupted(ERROR_WINHTTP_INVALID_URL);
  const UniqueInternet session(::WinHttpOpen(L"kupdate-standin/1.0", WINHTTP_ACCESS_TYPE_NO_PROXY,
                                             WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  if (!session) return Interrupted(::GetLastError());
  ::WinHttpSetTimeouts(session.get(), kTimeoutMilliseconds, kTimeoutMilliseconds,
                       kTimeoutMilliseconds, kTimeoutMilliseconds);
  const UniqueInternet connection(
      ::WinHttpConnect(session.get(), address->host.c_str(), address->port, 0));
  if (!connection) return Interrupted(::GetLastError());
  if (rule == ServerRule::kStatic) {
    DownloadResult checked = CheckServer(connection.get(), *address);
    if (checked.kind != Kind::kDone) return checked;
  }
  return GetFile(connection.get(), *address, rule, sink);
}

}  // namespace standin
