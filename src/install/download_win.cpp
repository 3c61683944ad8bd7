#include "install/download.h"
#include "util/win/unique.h"

#include <winhttp.h>

#include <optional>
#include <vector>

#include "install/update_offer.h"
#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr int kMaxRedirects = 5;
constexpr int kTimeoutMilliseconds = 60'000;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
// Since Windows 8.1; the SDK's name for it depends on the target.
constexpr DWORD kAutomaticProxy = 4;
constexpr DWORD kTls13 = 0x2000;

struct InternetTraits {
  using Type = HINTERNET;
  static Type None() { return nullptr; }
  static void Close(Type handle) { ::WinHttpCloseHandle(handle); }
};
using UniqueInternet = Unique<InternetTraits>;

// One request and what it hangs on; closed in the opposite order.
struct Exchange {
  UniqueInternet session;
  UniqueInternet connection;
  UniqueInternet request;
};

struct AddressParts {
  std::wstring host;
  std::wstring path;
  INTERNET_PORT port = 0;
  bool secure = false;
};

std::optional<AddressParts> Split(const std::string& url) {
  const std::wstring wide = WidenUtf8(url);
  URL_COMPONENTS parts = {};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;
  if (!::WinHttpCrackUrl(wide.c_str(), 0, 0, &parts)) return {};
  AddressParts result;
  result.host.assign(parts.lpszHostName, parts.dwHostNameLength);
  if (parts.dwUrlPathLength) result.path.assign(parts.lpszUrlPath, parts.dwUrlPathLength);
  if (parts.dwExtraInfoLength) result.path.append(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  result.port = parts.nPort;
  result.secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  return result;
}

UniqueInternet OpenSession() {
  const auto open = [](DWORD access) {
    return UniqueInternet(
        ::WinHttpOpen(L"kupdate", access, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  };
  UniqueInternet session = open(kAutomaticProxy);
  if (!session) session = open(WINHTTP_ACCESS_TYPE_DEFAULT_PROXY);
  if (!session) return session;
  ::WinHttpSetTimeouts(session.get(), kTimeoutMilliseconds, kTimeoutMilliseconds,
                       kTimeoutMilliseconds, kTimeoutMilliseconds);
  // Windows 7 offers no more than TLS 1.0 when not asked, and does not know of 1.3.
  for (DWORD protocols :
       {WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | kTls13, DWORD{WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2}}) {
    if (::WinHttpSetOption(session.get(), WINHTTP_OPTION_SECURE_PROTOCOLS, &protocols,
                           sizeof protocols)) {
      break;
    }
  }
  return session;
}

// Sends the request and waits for the head of the answer.
bool Ask(const AddressParts& address, Exchange* exchange) {
  exchange->session = OpenSession();
  if (!exchange->session) return false;
  exchange->connection = UniqueInternet(
      ::WinHttpConnect(exchange->session.get(), address.host.c_str(), address.port, 0));
  if (!exchange->connection) return false;
  exchange->request = UniqueInternet(
      ::WinHttpOpenRequest(exchange->connection.get(), L"GET", address.path.c_str(), nullptr,
                           WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                           WINHTTP_FLAG_REFRESH | (address.secure ? WINHTTP_FLAG_SECURE : 0u)));
  // Redirections are looked at here, since not every system keeps https from leading to http.
  DWORD features =
      WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION;
  return exchange->request &&
         ::WinHttpSetOption(exchange->request.get(), WINHTTP_OPTION_DISABLE_FEATURE, &features,
                            sizeof features) &&
         ::WinHttpSendRequest(exchange->request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                              WINHTTP_NO_REQUEST_DATA, 0, 0, 0) &&
         ::WinHttpReceiveResponse(exchange->request.get(), nullptr);
}

std::wstring Header(HINTERNET request, DWORD which) {
  wchar_t text[kMaxAddressBytes + 1];
  DWORD bytes = sizeof text;
  if (!::WinHttpQueryHeaders(request, which, WINHTTP_HEADER_NAME_BY_INDEX, text, &bytes,
                             WINHTTP_NO_HEADER_INDEX)) {
    return {};
  }
  return std::wstring(text, bytes / sizeof(wchar_t));
}

bool IsRedirect(std::int64_t status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

DownloadOutcome TakeContent(HINTERNET request, const DownloadRules& rules, std::uint64_t endTick,
                            const std::function<bool(std::string_view)>& take) {
  const std::wstring lengthText = Header(request, WINHTTP_QUERY_CONTENT_LENGTH);
  const auto announced = static_cast<std::uint64_t>(ParseInt64(NarrowUtf8(lengthText)));
  if (announced > rules.maxBytes) {
    LOG_E << "The server announces" << announced << "bytes, at most" << rules.maxBytes
          << "are expected.";
    return DownloadOutcome::kTooLong;
  }
  std::vector<char> piece(kPieceBytes);
  std::uint64_t total = 0;
  for (;;) {
    DWORD read = 0;
    if (!::WinHttpReadData(request, piece.data(), static_cast<DWORD>(piece.size()), &read)) {
      LOG_E << "The connection broke after" << total << "bytes." << kLastError;
      return DownloadOutcome::kFailed;
    }
    if (read == 0) break;
    total += read;
    if (total > rules.maxBytes) {
      LOG_E << "The server sends more than the expected" << rules.maxBytes << "bytes.";
      return DownloadOutcome::kTooLong;
    }
    if (!take(std::string_view(piece.data(), read))) return DownloadOutcome::kNotTaken;
    if (::GetTickCount64() >= endTick) {
      LOG_E << "The download is too slow: given up after" << rules.timeoutSeconds << "seconds.";
      return DownloadOutcome::kFailed;
    }
  }
  // A connection that ends too soon is not an error to every system.
  if (!lengthText.empty() && total != announced) {
    LOG_E << "The server announced" << announced << "bytes and sent" << total << ".";
    return DownloadOutcome::kFailed;
  }
  return DownloadOutcome::kDone;
}

bool IsAllowed(const std::string& url, const DownloadRules& rules) {
  const AddressKind kind = KindOfAddress(url);
  return kind == AddressKind::kHttps || (kind == AddressKind::kHttp && rules.allowHttp);
}

}  // namespace

DownloadOutcome Download(const std::string& url, const DownloadRules& rules,
                         const std::function<bool(std::string_view)>& take) {
  const std::uint64_t endTick = ::GetTickCount64() + std::uint64_t{rules.timeoutSeconds} * 1000;
  std::string address = url;
  for (int redirects = 0; redirects <= kMaxRedirects; ++redirects) {
    const std::optional<AddressParts> parts = Split(address);
    if (!IsAllowed(address, rules) || !parts) {
      LOG_E << "The address is not fetched:" << address;
      return DownloadOutcome::kFailed;
    }
    Exchange exchange;
    if (!Ask(*parts, &exchange)) {
      LOG_E << "Can't fetch" << address << kLastError;
      return DownloadOutcome::kFailed;
    }
    HINTERNET const request = exchange.request.get();
    const std::int64_t status = ParseInt64(NarrowUtf8(Header(request, WINHTTP_QUERY_STATUS_CODE)));
    if (status == HTTP_STATUS_OK) return TakeContent(request, rules, endTick, take);
    if (!IsRedirect(status)) {
      LOG_E << "The server answers" << status << "for" << address;
      return DownloadOutcome::kFailed;
    }
    const std::string location = NarrowUtf8(Header(request, WINHTTP_QUERY_LOCATION));
    address = RedirectedAddress(address, location);
    if (address.empty()) {
      LOG_E << "The redirection is not followed:" << location;
      return DownloadOutcome::kFailed;
    }
    LOG_D << "Redirected to" << address;
  }
  LOG_E << "Too many redirections:" << url;
  return DownloadOutcome::kFailed;
}
