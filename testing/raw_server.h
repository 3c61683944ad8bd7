// A web server that answers as no good one does.
#ifndef KUPDATE_TESTING_RAW_SERVER_H_
#define KUPDATE_TESTING_RAW_SERVER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

/// Serves one connection after the other on a free port of 127.0.0.1, until it is destroyed. Each
/// request gets the bytes of its answer, then the connection ends. Where they end with "..." more
/// and more follows.
class RawServer {
 public:
  /// What a request such as "GET /path" gets. Runs on the server's thread.
  using Answer = std::function<std::string(const std::string& request)>;
  /// @param drop  what follows an answer that ends with "...", after each pause
  explicit RawServer(Answer answer, std::string drop = std::string(4096, 'x'),
                     unsigned pauseMilliseconds = 0);
  ~RawServer();

  std::string Url(const std::string& path) const;

 private:
  void Serve();

  Answer answer_;
  std::string drop_;
  unsigned pauseMilliseconds_;
  std::atomic<bool> isOver_ = false;
  std::uintptr_t listener_;
  unsigned short port_;
  std::thread thread_;
};

#endif  // KUPDATE_TESTING_RAW_SERVER_H_
