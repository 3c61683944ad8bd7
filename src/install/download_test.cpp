#include "install/download.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>

#include "testing/log_capture.h"
#include "testing/raw_server.h"

namespace {

constexpr std::uint64_t kLimit = 100'000;

std::string Ok(const std::string& headers) { return "HTTP/1.1 200 OK\r\n" + headers + "\r\n"; }
std::string Redirect(const std::string& location) {
  return "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + location + "\r\n\r\n";
}

DownloadOutcome Get(const std::string& url, DownloadRules rules = {kLimit}) {
  std::uint64_t taken = 0;
  const auto take = [&](std::string_view piece) { return (taken += piece.size()) <= kLimit; };
  return Download(url, rules, take);
}

TEST(Download, EveryAnswerHasItsOutcome) {
  using enum DownloadOutcome;
  const struct {
    const char* path;
    std::string answer;
    DownloadOutcome want;
    const char* line = "";
  } rows[] = {
      {"/whole", Ok("Content-Length: 3\r\n") + "abc", kDone},
      {"/unannounced", Ok("Connection: close\r\n") + "abc", kDone},
      {"/limit", Ok("Content-Length: 100000\r\n") + std::string(kLimit, 'a'), kDone},
      {"/redirect", Redirect("/whole"), kDone},
      {"/long", Ok("Content-Length: 100001\r\n") + "a", kTooLong,
       "The server announces 100001 bytes, at most 100000 are expected."},
      {"/endless", Ok("Connection: close\r\n") + "...", kTooLong,
       "The server sends more than the expected 100000 bytes."},
      {"/cut", Ok("Content-Length: 100\r\n") + "a", kFailed},
      {"/closed", "", kFailed},
      {"/missing", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", kFailed, "answers 404"},
      {"/part", "HTTP/1.1 206 Partial Content\r\nContent-Length: 3\r\n\r\nabc", kFailed,
       "answers 206"},
      {"/file", Redirect("file:///C:/windows/win.ini"), kFailed,
       "The redirection is not followed: file:///C:/windows/win.ini"},
      {"/loop", Redirect("/loop"), kFailed, "Too many redirections: http"},
  };
  std::map<std::string, std::string> answers;
  for (const auto& row : rows) answers[row.path] = row.answer;
  const RawServer server(answers);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    const LogCapture log;
    EXPECT_EQ(Get(server.Url(row.path)), row.want);
    EXPECT_TRUE(log.Has(row.line));
  }
  const auto none = [](std::string_view) { return false; };
  EXPECT_EQ(Download(server.Url("/endless"), {~std::uint64_t{0}}, none), kNotTaken);
}

TEST(Download, NoServerMakesItLast) {
  const std::string ok = Ok("Content-Length: 40960\r\n");
  const DownloadRules pace{kLimit, 60, 1}, end{kLimit, 1, 60};
  const struct {
    const char* label;
    std::string head, drop;
    DownloadRules rules;
    const char* line;  // of the failure; empty: it is done
  } rows[] = {
      {"no head", "", "", pace, "too slow: 0 bytes in 2 seconds."},
      {"head without end", "HTTP/1.1 200 OK\r\n", "X: y\r\n", pace, "too slow: 0 bytes in 2"},
      {"stalls", ok + "abc", "", pace, "too slow: 3 bytes in 1 seconds."},
      {"drips", ok, "x", pace, "too slow:"},
      {"drips within its pace", ok, std::string(1024, 'x'), pace, ""},
      {"beyond all time", ok, std::string(1024, 'x'), end, "too slow: given up after 1 seconds."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const RawServer server(row.head, row.drop);
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Get(server.Url("/"), row.rules),
              *row.line ? DownloadOutcome::kFailed : DownloadOutcome::kDone);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_TRUE(log.Has(row.line));
  }
}

}  // namespace
