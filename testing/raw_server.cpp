#include "testing/raw_server.h"

#include <winsock2.h>

#include <algorithm>

#include "util/clock.h"

namespace {

bool Send(SOCKET socket, const std::string& bytes) {
  return ::send(socket, bytes.data(), static_cast<int>(bytes.size()), 0) >= 0;
}

// Method and address, once all of the head has come.
std::string RequestFrom(SOCKET socket) {
  std::string head;
  char piece[1024];
  for (int read = 1; read > 0 && head.find("\r\n\r\n") == head.npos;) {
    read = ::recv(socket, piece, sizeof piece, 0);
    head.append(piece, piece + std::max(read, 0));
  }
  return head.substr(0, head.find(' ', head.find(' ') + 1));
}

}  // namespace

RawServer::RawServer(Answer answer, std::string drop, unsigned pauseMilliseconds)
    : answer_(std::move(answer)), drop_(std::move(drop)), pauseMilliseconds_(pauseMilliseconds) {
  WSADATA data;
  ::WSAStartup(MAKEWORD(2, 2), &data);
  listener_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  int size = sizeof address;
  ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
  ::listen(listener_, SOMAXCONN);
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ::ntohs(address.sin_port);
  thread_ = std::thread([this] { Serve(); });
}

RawServer::~RawServer() {
  isOver_ = true;
  ::closesocket(listener_);  // ends the thread's wait
  thread_.join();
  ::WSACleanup();
}

std::string RawServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void RawServer::Serve() {
  while (!isOver_) {
    const SOCKET socket = ::accept(listener_, nullptr, nullptr);
    const std::string request = RequestFrom(socket);
    std::string answer = request.empty() ? request : answer_(request);
    const bool isEndless = answer.ends_with("...");
    if (isEndless) answer.resize(answer.size() - 3);
    bool isSent = Send(socket, answer);
    while (isSent && isEndless && !isOver_) {
      SleepMilliseconds(pauseMilliseconds_);
      isSent = Send(socket, drop_);
    }
    ::closesocket(socket);
  }
}
