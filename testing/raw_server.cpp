#include "testing/raw_server.h"

#include <winsock2.h>

#include <string_view>
#include <utility>

#include "testing/raw_socket.h"

namespace {

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
  listener_ = ListenLocally(&port_);
  thread_ = std::thread([this] { Serve(); });
}

RawServer::~RawServer() {
  // It takes a connection without a request for the end.
  WakeListener(port_);
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
    const std::string line = RequestLine(socket);
    const std::string request = line.substr(0, line.find(' ', line.find(' ') + 1));
    if (!request.empty()) Send(socket, answer_(request));
    ::closesocket(socket);
    if (request.empty()) return;
  }
}
