#include "proof/service_web.h"

#include <winsock2.h>

#include <utility>

#include "testing/raw_socket.h"
#include "util/clock.h"

namespace proof {

namespace {

constexpr std::string_view kEndless = "...";
constexpr unsigned kTrickleMilliseconds = 50;

}  // namespace

std::string AnswerOf(std::string_view status, std::string_view headers, std::string_view body) {
  return std::string("HTTP/1.1 ")
      .append(status)
      .append("\r\n")
      .append(headers)
      .append("Connection: close\r\n\r\n")
      .append(body);
}

std::string GoodAnswer(std::string_view content) {
  return AnswerOf(
      "200 OK",
      "Accept-Ranges: bytes\r\nContent-Length: " + std::to_string(content.size()) + "\r\n",
      content);
}

OddWeb::OddWeb() {
  WSADATA data;
  ::WSAStartup(MAKEWORD(2, 2), &data);
  ComeBack();
}

OddWeb::~OddWeb() {
  GoAway();
  ::WSACleanup();
}

void OddWeb::Answer(const std::string& path, std::string toGet, std::string toHead) {
  const std::lock_guard lock(mutex_);
  if (toHead.empty()) toHead = toGet;
  answers_[path] = {std::move(toGet), std::move(toHead)};
}

void OddWeb::ComeBack() {
  if (!std::exchange(away_, false)) return;
  listener_ = ListenLocally(&port_);
  thread_ = std::thread([this] { Serve(); });
}

void OddWeb::GoAway() {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(away_, true)) return;
  }
  WakeListener(port_);
  thread_.join();
  ::closesocket(listener_);
}

std::string OddWeb::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<std::string> OddWeb::Asked() const {
  const std::lock_guard lock(mutex_);
  return asked_;
}

void OddWeb::Serve() {
  for (;;) {
    const SOCKET socket = ::accept(listener_, nullptr, nullptr);
    {
      const std::lock_guard lock(mutex_);
      if (away_) {
        ::closesocket(socket);
        return;
      }
    }
    Handle(socket);
    ::closesocket(socket);
  }
}

void OddWeb::Handle(std::uintptr_t socket) {
  const std::string line = RequestLine(socket);
  const std::size_t begin = line.find(' ') + 1;
  const std::string address = line.substr(begin, line.find(' ', begin) - begin);
  const bool isGet = line.starts_with("GET ");
  std::string answer = AnswerOf("404 Not Found", "Content-Length: 0\r\n");
  {
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(address.substr(0, address.find('?')));
    if (found != answers_.end()) {
      answer = isGet ? found->second.toGet : found->second.toHead;
      if (isGet) asked_.push_back(address);
    }
  }
  if (!isGet) answer.resize(std::min(answer.find("\r\n\r\n") + 4, answer.size()));
  const bool endless = answer.ends_with(kEndless);
  if (endless) answer.resize(answer.size() - kEndless.size());
  bool sent = SendAll(socket, answer);
  const std::string more(64, ' ');
  while (sent && endless) {
    SleepMilliseconds(kTrickleMilliseconds);
    {
      const std::lock_guard lock(mutex_);
      if (away_) return;
    }
    sent = SendAll(socket, more);
  }
}

}  // namespace proof
