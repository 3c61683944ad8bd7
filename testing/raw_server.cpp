#include "testing/raw_server.h"

#include <winsock2.h>

#include <string_view>
#include <utility>

#include "util/clock.h"

namespace {

constexpr std::string_view kEndless = "...";

bool SendAll(SOCKET socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const int sent = ::send(socket, bytes.data(), static_cast<int>(bytes.size()), 0);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

// Method and address, once all of the head has come; empty when it does not come.
std::string RequestFrom(SOCKET socket) {
  std::string head;
  char piece[1024];
  while (head.find("\r\n\r\n") == head.npos) {
    const int read = ::recv(socket, piece, sizeof piece, 0);
    if (read <= 0) return {};
    head.append(piece, static_cast<std::size_t>(read));
  }
  return head.substr(0, head.find(' ', head.find(' ') + 1));
}

}  // namespace

RawServer::RawServer(std::map<std::string, std::string> answers)
    : RawServer([answers = std::move(answers)](const std::string& request) {
        const auto answer = answers.find(request.substr(request.find(' ') + 1));
        return answer == answers.end() ? std::string() : answer->second;
      }) {}

RawServer::RawServer(std::string head, std::string drop)
    : RawServer([head = head + std::string(kEndless)](const std::string&) { return head; }) {
  drop_ = std::move(drop);
  pauseMilliseconds_ = 50;
}

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
    if (!request.empty()) Send(socket, answer_(request));
    ::closesocket(socket);
  }
}

void RawServer::Send(std::uintptr_t socket, std::string answer) const {
  const bool isEndless = answer.ends_with(kEndless);
  if (isEndless) answer.resize(answer.size() - kEndless.size());
  bool isSent = SendAll(socket, answer);
  while (isSent && isEndless && !isOver_) {
    isSent = SendAll(socket, drop_);
    SleepMilliseconds(pauseMilliseconds_);
  }
}
