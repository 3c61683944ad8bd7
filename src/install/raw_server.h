// A web server that answers as no good one does.
#ifndef KUPDATE_INSTALL_RAW_SERVER_H_
#define KUPDATE_INSTALL_RAW_SERVER_H_

#include <cstdint>
#include <map>
#include <string>
#include <thread>

/// Serves one connection after the other on a free port of 127.0.0.1, until it is destroyed. Each
/// request gets the bytes that stand for its path, then the connection ends; where they end with
/// "..." more and more follows.
class RawServer {
 public:
  explicit RawServer(std::map<std::string, std::string> answers);
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  std::string Url(const std::string& path) const;

 private:
  void Serve() const;

  std::map<std::string, std::string> answers_;
  std::uintptr_t listener_;
  int port_ = 0;
  std::thread thread_;
};

#endif  // KUPDATE_INSTALL_RAW_SERVER_H_
