// The faults of the web server and of the way to it.
#include "proof/service_faults.h"
#include "proof/service_web.h"

namespace proof {

namespace {

constexpr Route kCheck = Route::kCheck;
constexpr Route kHostCheck = Route::kHostCheck;
constexpr Route kPing = Route::kPing;

constexpr char kFailed[] = "appinfo.xml(0) statistics.xml(install)";
constexpr char kFound[] = "appinfo.xml(1) statistics.xml(install) updinfo.xml(2.0)";
constexpr char kUnsent[] = "appinfo.xml statistics.xml(install p=1)";
constexpr char kSent[] = "appinfo.xml statistics.xml(confirmed)";
constexpr char kFetching[] = "BIT.tmp appinfo.xml statistics.xml(install)";
constexpr char kSending[] = "BIT.tmp appinfo.xml in_work_0.xml(install p=1) statistics.xml";

constexpr char kNotFetched[] = "E:Answer: The check failed: the feed was not downloaded.";
constexpr char kNotRead[] = "E:JudgeFeed: The check failed:  The feed cannot be read.";
constexpr char kNotDelivered[] = "I:SettleBlock: Not delivered, block: 0";
constexpr char kDelivered[] = "I:SettleBlock: Delivered, block: 0";
constexpr char kDone[] = "I:RunLogged: Exit code: 0";
constexpr char kStalled[] = "\"event\":\"transient_error\"";

constexpr std::int64_t kTwentyHours = 20 * 3600;
constexpr std::int64_t kTenDays = 10 * Fault::kDay;
constexpr std::int64_t kFifteenDays = 15 * Fault::kDay;

constexpr char kRanges[] = "Accept-Ranges: bytes\r\n";

std::string Status(const char* status) { return AnswerOf(status, "Content-Length: 0\r\n"); }

// An answer that says it has so many bytes.
std::string Sized(int bytes, std::string_view body) {
  return AnswerOf("200 OK", kRanges + ("Content-Length: " + std::to_string(bytes)) + "\r\n", body);
}

std::string Redirect(const std::string& target) {
  return AnswerOf("302 Found", "Content-Length: 0\r\nLocation: " + target + "\r\n");
}

// What a server sends that always compresses, to a client that did not ask for it; and it is broken.
std::string Compressed() {
  const std::string rubbish = "\x1F\x8B\x08" + std::string(500, '\xA5');
  return AnswerOf("200 OK",
                  std::string(kRanges) + "Content-Encoding: gzip\r\nContent-Length: " +
                      std::to_string(rubbish.size()) + "\r\n",
                  rubbish);
}

constexpr char kErrorPage[] =
    "<!DOCTYPE html><html><head><title>Oops</title></head><body>Out of order</body></html>";

}  // namespace

std::vector<Fault> NetworkFaults() {
  return {
      {.label = "404 (check)",
       .route = kCheck,
       .path = "missing",
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "404 (ping)",
       .route = kPing,
       .path = "missing",
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "404 (host's check)",
       .route = kHostCheck,
       .path = "missing",
       .host = "job failed",
       .files = "appinfo.xml",
       .log = {"E:TUpdaterController::IsUpdateAvailable: Job failed."}},
      {.label = "403 (check)",
       .route = kCheck,
       .get = Status("403 Forbidden"),
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "403 (ping)",
       .route = kPing,
       .get = Status("403 Forbidden"),
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "500 for good: the service gives up after 23 hours (check)",
       .route = kCheck,
       .get = Status("500 Internal Server Error"),
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "500 for good: the service gives up after 14 days (ping)",
       .route = kPing,
       .get = Status("500 Internal Server Error"),
       .until = kStalled,
       .lastsSeconds = kFifteenDays,
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "503 for twenty hours, then good (check)",
       .route = kCheck,
       .get = Status("503 Service Unavailable"),
       .until = kStalled,
       .lastsSeconds = kTwentyHours,
       .files = kFetching,
       .jobs = "check TRANSIENT_ERROR"},
      {.label = "503 for ten days, then good (ping)",
       .route = kPing,
       .get = Status("503 Service Unavailable"),
       .until = kStalled,
       .lastsSeconds = kTenDays,
       .files = kSending,
       .jobs = "ping TRANSIENT_ERROR"},
      {.label = "503 for twenty hours, then good (host's check)",
       .route = kHostCheck,
       .get = Status("503 Service Unavailable"),
       .until = kStalled,
       .lastsSeconds = kTwentyHours,
       .host = "in work",
       .files = "BIT.tmp appinfo.xml",
       .jobs = "bare TRANSIENT_ERROR",
       .log = {"D:TUpdaterController::IsUpdateAvailable: Job in work."}},
      {.label = "nobody listens for twenty hours, then somebody does (check)",
       .route = kCheck,
       .serverIsAway = true,
       .until = kStalled,
       .lastsSeconds = kTwentyHours,
       .files = kFetching,
       .jobs = "check TRANSIENT_ERROR"},
      {.label = "nobody listens for ten days, then somebody does (ping)",
       .route = kPing,
       .serverIsAway = true,
       .until = kStalled,
       .lastsSeconds = kTenDays,
       .files = kSending,
       .jobs = "ping TRANSIENT_ERROR"},
      {.label = "nobody listens for fifteen days (ping)",
       .route = kPing,
       .serverIsAway = true,
       .until = kStalled,
       .lastsSeconds = kFifteenDays,
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "the connection is closed without an answer, for a day (check)",
       .route = kCheck,
       .path = "drop",
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "no such host, for a day (check)",
       .route = kCheck,
       .get = Redirect("http://no-such-host.invalid/feed"),
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "cut in the middle, for a day (check)",
       .route = kCheck,
       .get = Sized(5000, "<?xml version=\"1.0\"?><rss><channel>"),
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "cut in the middle, then whole (check)",
       .route = kCheck,
       .get = Sized(5000, "<?xml version=\"1.0\"?><rss><channel>"),
       .until = kStalled,
       .lastsSeconds = kTwentyHours,
       .files = kFetching,
       .jobs = "check TRANSIENT_ERROR"},
      {.label = "cut in the middle, for fifteen days (ping)",
       .route = kPing,
       .get = Sized(5000, "thank"),
       .until = kStalled,
       .lastsSeconds = kFifteenDays,
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "longer than the server says, for a day (check)",
       .route = kCheck,
       .get = Sized(40, "<?xml version=\"1.0\"?><rss><channel></channel></rss>"),
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "another size to HEAD than to GET (check)",
       .route = kCheck,
       .get = Sized(5, "<rss>"),
       .head = Sized(5000, ""),
       .files = kFailed,
       .log = {kNotRead}},
      {.label = "endless (check)",
       .route = kCheck,
       .get = Sized(2000000000, "<rss>..."),
       .until = "\"call\":\"Resume\"",
       .files = kFetching,
       .jobs = "check CONNECTING"},
      {.label = "endless (ping)",
       .route = kPing,
       .get = Sized(2000000000, "thank..."),
       .until = "\"call\":\"Resume\"",
       .files = kSending,
       .jobs = "ping CONNECTING"},
      {.label = "empty (check)",
       .route = kCheck,
       .get = Sized(0, ""),
       .files = kFailed,
       .log = {"E:JudgeFeed: The check failed:  bad xml: root node name is not 'rss' but NA"}},
      {.label = "empty (ping)",
       .route = kPing,
       .get = Sized(0, ""),
       .files = kSent,
       .log = {kDelivered},
       .reports = 0},
      {.label = "slow: two seconds (check)",
       .route = kCheck,
       .path = "slow/long-feed",
       .files = kFound,
       .log = {kDone}},
      {.label = "redirected (check)",
       .route = kCheck,
       .get = Redirect("/good"),
       .files = kFound,
       .log = {kDone}},
      {.label = "redirected (ping)",
       .route = kPing,
       .get = Redirect("/good"),
       .files = kSent,
       .log = {kDelivered},
       .reports = 0},
      {.label = "redirected to itself, for a day (check)",
       .route = kCheck,
       .get = Redirect("/odd"),
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "redirected to itself, for fifteen days (ping)",
       .route = kPing,
       .get = Redirect("/odd"),
       .until = kStalled,
       .lastsSeconds = kFifteenDays,
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "a server without HEAD (check)",
       .route = kCheck,
       .get = GoodAnswer("<rss/>"),
       .head = Status("405 Method Not Allowed"),
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "a server without HEAD (ping)",
       .route = kPing,
       .get = GoodAnswer("ok"),
       .head = Status("405 Method Not Allowed"),
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "a server without ranges (check)",
       .route = kCheck,
       .get = AnswerOf("200 OK", "Content-Length: 6\r\n", "<rss/>"),
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "a server without sizes (ping)",
       .route = kPing,
       .get = AnswerOf("200 OK", kRanges, "ok"),
       .files = kUnsent,
       .log = {kNotDelivered}},
      {.label = "no HTTP at all, for a day (check)",
       .route = kCheck,
       .get = "SSH-2.0-none\r\n\r\n",
       .until = kStalled,
       .lastsSeconds = Fault::kDay,
       .files = kFailed,
       .log = {kNotFetched}},
      {.label = "a feed that is no XML (check)",
       .route = kCheck,
       .get = GoodAnswer(std::string(3000, '\xFF')),
       .files = kFailed,
       .log = {kNotRead}},
      {.label = "broken compressed data (check)",
       .route = kCheck,
       .get = Compressed(),
       .files = kFailed,
       .log = {kNotRead}},
      {.label = "an error page with status 200 (check)",
       .route = kCheck,
       .get = GoodAnswer(kErrorPage),
       .files = kFailed,
       .log = {"E:JudgeFeed: The check failed:  bad xml: root node name is not 'rss' but html"}},
      {.label = "an error page with status 200 (host's check)",
       .route = kHostCheck,
       .get = GoodAnswer(kErrorPage),
       .host = "failure",
       .files = "ID-version.rss appinfo.xml",
       .log = {"D:TUpdaterController::IsUpdateAvailable: Unhandled exception."}},
      {.label = "an error page with status 200 (ping)",
       .route = kPing,
       .get = GoodAnswer(kErrorPage),
       .files = kSent,
       .log = {kDelivered},
       .reports = 0},
  };
}

}  // namespace proof
