#include "testing/raw_server.h"

#include <winsock2.h>

#include <string_view>
#include <utility>

namespace {

bool SendAll(SOCKET socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const int sent = ::send(socket, bytes.data(), static_cast<int>(bytes.size()), 0);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

// "GET /path", once all of the request's head has come.
std::string RequestOf(SOCKET socket) {
  std::string request;
  char piece[1024];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const int read = ::recv(socket, piece, sizeof piece, 0);
    if (read <= 0) return {};
    request.append(piece, static_cast<std::size_t>(read));
  }
  return request.substr(0, request.find(' ', request.find(' ') + 1));
}

void Send(SOCKET socket, std::string_view bytes) {
  constexpr std::string_view kEndless = "...";
  const bool endless = bytes.ends_with(kEndless);
  if (endless) bytes.remove_suffix(kEndless.size());
  bool sent = SendAll(socket, bytes);
  const std::string line(4096, 'x');
  while (sent && endless) sent = SendAll(socket, line);
}

}  // namespace

RawServer::RawServer(std::map<std::string, std::string> answers)
    : RawServer([answers = std::move(answers)](const std::string& request) {
        const auto answer = answers.find(request.substr(request.find(' ') + 1));
        return answer == answers.end() ? std::string() : answer->second;
      }) {}

RawServer::RawServer(Answer answer) : answer_(std::move(answer)) {
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
  // A last connection wakes the thread, which takes one without a request for the end.
  const SOCKET last = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  address.sin_port = ::htons(static_cast<u_short>(port_));
  ::connect(last, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::closesocket(last);
  thread_.join();
  ::closesocket(listener_);
  ::WSACleanup();
}

std::string RawServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void RawServer::Serve() const {
  for (;;) {
    const SOCKET socket = ::accept(listener_, nullptr, nullptr);
    const std::string request = RequestOf(socket);
    if (!request.empty()) Send(socket, answer_(request));
    ::closesocket(socket);
    if (request.empty()) return;
  }
}
