#include "install/download.h"

#include <gtest/gtest.h>

#include <chrono>

#include "testing/log_capture.h"
#include "testing/raw_server.h"

namespace {

constexpr std::uint64_t kLimit = 100'000;

std::string Ok(const std::string& headers) { return "HTTP/1.1 200 OK\r\n" + headers + "\r\n"; }
std::string Redirect(const std::string& location) {
  return "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + location + "\r\n\r\n";
}

TEST(Download, EveryAnswerHasItsOutcome) {
  const RawServer server({
      {"/whole", Ok("Content-Length: 3\r\n") + "abc"},
      {"/unannounced", Ok("Connection: close\r\n") + "abc"},
      {"/limit", Ok("Content-Length: 100000\r\n") + std::string(kLimit, 'a')},
      {"/long", Ok("Content-Length: 100001\r\n") + "a"},
      {"/endless", Ok("Connection: close\r\n") + "..."},
      {"/cut", Ok("Content-Length: 100\r\n") + "a"},
      {"/missing", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"},
      {"/part", "HTTP/1.1 206 Partial Content\r\nContent-Length: 3\r\n\r\nabc"},
      {"/redirect", Redirect("/whole")},
      {"/file", Redirect("file:///C:/windows/win.ini")},
      {"/loop", Redirect("/loop")},
  });
  const struct {
    const char* path;
    DownloadOutcome want;
    std::string line;  // empty: any
  } rows[] = {
      {"/whole", DownloadOutcome::kDone, ""},
      {"/unannounced", DownloadOutcome::kDone, ""},
      {"/limit", DownloadOutcome::kDone, ""},
      {"/redirect", DownloadOutcome::kDone, ""},
      {"/long", DownloadOutcome::kTooLong,
       "TakeContent: The server announces 100001 bytes, at most 100000 are expected."},
      {"/endless", DownloadOutcome::kTooLong,
       "TakeContent: The server sends more than the expected 100000 bytes."},
      {"/cut", DownloadOutcome::kFailed, ""},
      {"/closed", DownloadOutcome::kFailed, ""},
      {"/missing", DownloadOutcome::kFailed,
       "Download: The server answers 404 for " + server.Url("/missing")},
      {"/part", DownloadOutcome::kFailed,
       "Download: The server answers 206 for " + server.Url("/part")},
      {"/file", DownloadOutcome::kFailed,
       "Download: The redirection is not followed: file:///C:/windows/win.ini"},
      {"/loop", DownloadOutcome::kFailed,
       "Download: Too many redirections: " + server.Url("/loop")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    const LogCapture log;
    std::uint64_t taken = 0;
    const auto take = [&](std::string_view piece) { return taken += piece.size(), true; };
    EXPECT_EQ(Download(server.Url(row.path), {kLimit}, take), row.want);
    EXPECT_LE(taken, kLimit);
    EXPECT_TRUE(row.line.empty() || log.Has("E:" + row.line))
        << testing::PrintToString(log.Lines());
  }
}

TEST(Download, NoServerMakesItLast) {
  const std::string ok = Ok("Content-Length: 40960\r\n");
  const std::string drop(1024, 'x');
  const DownloadRules pace{kLimit, 60, 1};
  const DownloadRules end{kLimit, 1, 60};
  const DownloadOutcome failed = DownloadOutcome::kFailed;
  const struct {
    const char* label;
    std::string head, drop;
    DownloadRules rules;
    DownloadOutcome want;
    std::string line;  // a part of it
  } rows[] = {
      {"no head", "", "", pace, failed, "too slow: 0 bytes in 2 seconds."},
      {"head without end", "HTTP/1.1 200 OK\r\n", "X: y\r\n", pace, failed,
       "too slow: 0 bytes in 2"},
      {"stalls", ok + "abc", "", pace, failed, "too slow: 3 bytes in 1 seconds."},
      {"drips", ok, "x", pace, failed, "too slow:"},
      {"drips within its pace", ok, drop, pace, DownloadOutcome::kDone, ""},
      {"beyond all time", ok, drop, end, failed, "too slow: given up after 1 seconds."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const RawServer server(row.head, row.drop);
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Download(server.Url("/"), row.rules, [](std::string_view) { return true; }),
              row.want);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    const std::string lines = testing::PrintToString(log.Lines());
    EXPECT_NE(lines.find(row.line), lines.npos) << lines;
  }
}

TEST(Download, EndsWhenItsTakerRefuses) {
  const RawServer server({{"/endless", Ok("Connection: close\r\n") + "..."}});
  const auto none = [](std::string_view) { return false; };
  EXPECT_EQ(Download(server.Url("/endless"), {~std::uint64_t{0}}, none),
            DownloadOutcome::kNotTaken);
}

}  // namespace
