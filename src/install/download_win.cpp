#include "install/download.h"
#include "util/win/system_library.h"

#include <winhttp.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "install/update_offer.h"
#include "util/clock.h"
#include "util/diag_log.h"
#include "util/handle.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

constexpr int kMaxRedirects = 5;
// The limits that the system keeps for single steps. A server that sends a little now and then
// never reaches them, so Patience has the last word.
constexpr int kTimeoutMilliseconds = 120'000;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
constexpr std::uint64_t kLeastBytesPerSecond = 1024;
constexpr unsigned kHeadPaces = 2;
// Since Windows 8.1; the SDK's name for it depends on the target.
constexpr DWORD kAutomaticProxy = 4;
constexpr DWORD kTls13 = 0x2000;

namespace http {
SYSTEM_FUNCTION("winhttp.dll", WinHttpCloseHandle);
SYSTEM_FUNCTION("winhttp.dll", WinHttpConnect);
SYSTEM_FUNCTION("winhttp.dll", WinHttpCrackUrl);
SYSTEM_FUNCTION("winhttp.dll", WinHttpOpen);
SYSTEM_FUNCTION("winhttp.dll", WinHttpOpenRequest);
SYSTEM_FUNCTION("winhttp.dll", WinHttpQueryDataAvailable);
SYSTEM_FUNCTION("winhttp.dll", WinHttpQueryHeaders);
SYSTEM_FUNCTION("winhttp.dll", WinHttpReadData);
SYSTEM_FUNCTION("winhttp.dll", WinHttpReceiveResponse);
SYSTEM_FUNCTION("winhttp.dll", WinHttpSendRequest);
SYSTEM_FUNCTION("winhttp.dll", WinHttpSetOption);
SYSTEM_FUNCTION("winhttp.dll", WinHttpSetStatusCallback);
SYSTEM_FUNCTION("winhttp.dll", WinHttpSetTimeouts);
}  // namespace http

struct InternetTraits {
  using Type = HINTERNET;
  static Type None() { return nullptr; }
  static void Close(Type handle) {
    if (const auto close = http::WinHttpCloseHandle.Find()) close(handle);
  }
};
using UniqueInternet = Unique<InternetTraits>;

// The time that the server still has.
class Patience {
 public:
  explicit Patience(const DownloadRules& rules)
      : rules_(rules), endTick_(SteadyMilliseconds() + Milliseconds(rules.timeoutSeconds)) {}

  void BeginHead() { BeginPace(kHeadPaces * rules_.paceSeconds, 1); }
  void BeginContent() { BeginPace(rules_.paceSeconds, kLeastBytesPerSecond * rules_.paceSeconds); }
  void HaveCome(std::uint64_t bytes) { bytes_ += bytes; }

  /// Waits for an event. False, and a line in the log, when the server's time is over.
  bool WaitFor(const UniqueHandle& event) {
    for (;;) {
      const std::uint64_t now = SteadyMilliseconds();
      if (now >= endTick_) {
        LOG_E << "The download is too slow: given up after" << rules_.timeoutSeconds << "seconds.";
        return false;
      }
      if (now >= paceEndTick_) {
        if (bytes_ < leastBytes_) {
          LOG_E << "The download is too slow:" << bytes_ << "bytes in" << paceSeconds_
                << "seconds.";
          return false;
        }
        BeginContent();
      }
      const std::uint64_t end = std::min(endTick_, paceEndTick_);
      const DWORD result = ::WaitForSingleObject(event.get(), static_cast<DWORD>(end - now));
      if (result != WAIT_TIMEOUT) return result == WAIT_OBJECT_0;
    }
  }

 private:
  static std::uint64_t Milliseconds(unsigned seconds) { return std::uint64_t{seconds} * 1000; }

  void BeginPace(unsigned seconds, std::uint64_t leastBytes) {
    paceSeconds_ = seconds;
    paceEndTick_ = SteadyMilliseconds() + Milliseconds(seconds);
    leastBytes_ = leastBytes;
    bytes_ = 0;
  }

  const DownloadRules& rules_;
  std::uint64_t endTick_;
  unsigned paceSeconds_ = 0;
  std::uint64_t paceEndTick_ = 0;
  std::uint64_t leastBytes_ = 0;
  std::uint64_t bytes_ = 0;
};

// The system's reports about a request, which come on its own threads, and the content that it
// reads. The system may still write here when the Exchange has ended, so both own the report.
struct Report {
  UniqueHandle arrived{::CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  DWORD error = 0;
  DWORD bytes = 0;  // that are there, or were read
  char piece[kPieceBytes];
};
using SharedReport = std::shared_ptr<Report>;

void CALLBACK TakeReport(HINTERNET, DWORD_PTR context, DWORD status, void* information,
                         DWORD length) {
  auto* const owner = reinterpret_cast<SharedReport*>(context);
  if (!owner) return;
  Report& report = **owner;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      // The last report. Until now the system may have been writing, also after the request was
      // closed.
      delete owner;
      return;
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
      report.bytes = *static_cast<DWORD*>(information);
      break;
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
      report.bytes = length;
      break;
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      report.error = static_cast<WINHTTP_ASYNC_RESULT*>(information)->dwError;
      break;
    default:
      break;
  }
  ::SetEvent(report.arrived.get());
}

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
  // A length other than zero asks for a pointer into the address instead of a copy.
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;
  if (!http::WinHttpCrackUrl(wide.c_str(), 0u, 0u, &parts)) return {};
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
        http::WinHttpOpen(L"kupdate", access, nullptr, nullptr, DWORD{WINHTTP_FLAG_ASYNC}));
  };
  UniqueInternet session = open(kAutomaticProxy);
  // Before Windows 8.1 the first call fails. The proxy of the system's own settings is left then.
  if (!session) session = open(WINHTTP_ACCESS_TYPE_DEFAULT_PROXY);
  if (!session) return session;
  http::WinHttpSetTimeouts(session.get(), kTimeoutMilliseconds, kTimeoutMilliseconds,
                           kTimeoutMilliseconds, kTimeoutMilliseconds);
  // Windows 7 offers at most TLS 1.0 unless it is asked for more, and does not know 1.3.
  for (DWORD protocols :
       {WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | kTls13, DWORD{WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2}}) {
    if (http::WinHttpSetOption(session.get(), DWORD{WINHTTP_OPTION_SECURE_PROTOCOLS}, &protocols,
                               DWORD{sizeof protocols})) {
      break;
    }
  }
  return session;
}

// One request with its session and connection, which are closed in the opposite order. A step that
// needs the server is started first; then Patience limits the wait for its end.
class Exchange {
 public:
  explicit Exchange(Patience* patience) : patience_(*patience) {}

  /// Sends the request and waits for the head of the answer. False was logged.
  bool Ask(const std::string& url, const AddressParts& address) {
    patience_.BeginHead();
    if (Open(address) &&
        Await(
            http::WinHttpSendRequest(request_.get(), nullptr, 0u, nullptr, 0u, 0u, DWORD_PTR{0})) &&
        Await(http::WinHttpReceiveResponse(request_.get(), nullptr))) {
      patience_.BeginContent();
      return true;
    }
    LOG_E << "Can't fetch" << url << kLastError;
    return false;
  }

  /// Empty when the answer has no such header.
  std::string Header(DWORD which) const {
    // A longer header does not fit and counts as absent: no address of its length would be fetched.
    wchar_t text[kMaxAddressBytes + 1];
    DWORD bytes = sizeof text;
    if (!http::WinHttpQueryHeaders(request_.get(), which, nullptr, text, &bytes, nullptr)) {
      return {};
    }
    return NarrowUtf8(std::wstring_view(text, bytes / sizeof(wchar_t)));
  }

  /// Waits for the next piece of the content, which stays until the next call; it is empty at the
  /// end. False: with the last error.
  bool Read(std::string_view* piece) {
    *piece = {};
    if (!Await(http::WinHttpQueryDataAvailable(request_.get(), nullptr))) return false;
    const DWORD bytes = std::min(report_->bytes, DWORD{kPieceBytes});
    if (bytes == 0) return true;
    if (!Await(http::WinHttpReadData(request_.get(), report_->piece, bytes, nullptr))) return false;
    patience_.HaveCome(report_->bytes);
    *piece = std::string_view(report_->piece, report_->bytes);
    return true;
  }

 private:
  bool Open(const AddressParts& address) {
    session_ = OpenSession();
    if (!session_) return false;
    connection_ = UniqueInternet(
        http::WinHttpConnect(session_.get(), address.host.c_str(), address.port, 0u));
    if (!connection_) return false;
    // REFRESH keeps proxies from answering out of their caches.
    request_ = UniqueInternet(http::WinHttpOpenRequest(
        connection_.get(), L"GET", address.path.c_str(), nullptr, nullptr, nullptr,
        WINHTTP_FLAG_REFRESH | (address.secure ? WINHTTP_FLAG_SECURE : 0u)));
    // Download follows redirections itself, because the rules for addresses hold for them too.
    DWORD features =
        WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION;
    return request_ &&
           http::WinHttpSetOption(request_.get(), DWORD{WINHTTP_OPTION_DISABLE_FEATURE}, &features,
                                  DWORD{sizeof features}) &&
           ListenToReports();
  }

  bool ListenToReports() {
    // No report comes before the callback is set, so a failure up to then frees the owner here.
    auto owner = std::make_unique<SharedReport>(report_);
    SharedReport* context = owner.get();
    if (!http::WinHttpSetOption(request_.get(), DWORD{WINHTTP_OPTION_CONTEXT_VALUE}, &context,
                                DWORD{sizeof context})) {
      return false;
    }
    constexpr DWORD kReports =
        WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;
    if (http::WinHttpSetStatusCallback(request_.get(), &TakeReport, kReports, DWORD_PTR{0}) ==
        WINHTTP_INVALID_STATUS_CALLBACK) {
      return false;
    }
    owner.release();  // NOLINT(bugprone-unused-return-value): TakeReport deletes it
    return true;
  }

  // Waits for the end of a step. False, with the last error, also for a step that did not start.
  bool Await(BOOL isStarted) {
    if (!isStarted) return false;
    if (!patience_.WaitFor(report_->arrived)) {
      ::SetLastError(ERROR_WINHTTP_TIMEOUT);
      return false;
    }
    if (report_->error == 0) return true;
    ::SetLastError(report_->error);
    return false;
  }

  Patience& patience_;
  SharedReport report_ = std::make_shared<Report>();
  UniqueInternet session_;
  UniqueInternet connection_;
  UniqueInternet request_;
};

bool IsRedirect(std::int64_t status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

DownloadOutcome TakeContent(Exchange& exchange, const DownloadRules& rules,
                            const std::function<bool(std::string_view)>& take) {
  const std::string lengthText = exchange.Header(WINHTTP_QUERY_CONTENT_LENGTH);
  const auto announced = static_cast<std::uint64_t>(ParseInt64(lengthText));
  // A negative length has become a huge number and ends here too.
  if (announced > rules.maxBytes) {
    LOG_E << "The server announces" << announced << "bytes, at most" << rules.maxBytes
          << "are expected.";
    return DownloadOutcome::kTooLong;
  }
  std::uint64_t total = 0;
  for (std::string_view piece;;) {
    if (!exchange.Read(&piece)) {
      LOG_E << "The connection broke after" << total << "bytes." << kLastError;
      return DownloadOutcome::kFailed;
    }
    if (piece.empty()) break;
    total += piece.size();
    if (total > rules.maxBytes) {
      LOG_E << "The server sends more than the expected" << rules.maxBytes << "bytes.";
      return DownloadOutcome::kTooLong;
    }
    if (!take(piece)) return DownloadOutcome::kNotTaken;
  }
  // Not every system reports a connection that ends too soon as an error.
  if (!lengthText.empty() && total != announced) {
    LOG_E << "The server announced" << announced << "bytes and sent" << total << ".";
    return DownloadOutcome::kFailed;
  }
  return DownloadOutcome::kDone;
}

}  // namespace

DownloadOutcome Download(const std::string& url, const DownloadRules& rules,
                         const std::function<bool(std::string_view)>& take) {
  // One deadline for all requests: a server gains no time by redirecting.
  Patience patience(rules);
  std::string address = url;
  for (int redirects = 0; redirects <= kMaxRedirects; ++redirects) {
    const std::optional<AddressParts> parts = Split(address);
    if (!IsFetched(address) || !parts) {
      LOG_E << "The address is not fetched:" << address;
      return DownloadOutcome::kFailed;
    }
    Exchange exchange(&patience);
    if (!exchange.Ask(address, *parts)) return DownloadOutcome::kFailed;
    const std::int64_t status = ParseInt64(exchange.Header(WINHTTP_QUERY_STATUS_CODE));
    if (status == HTTP_STATUS_OK) return TakeContent(exchange, rules, take);
    if (!IsRedirect(status)) {
      LOG_E << "The server answers" << status << "for" << address;
      return DownloadOutcome::kFailed;
    }
    const std::string location = exchange.Header(WINHTTP_QUERY_LOCATION);
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
