#include "testing/raw_socket.h"

#include <winsock2.h>

namespace {

sockaddr_in Local(unsigned short port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  address.sin_port = ::htons(port);
  return address;
}

}  // namespace

std::uintptr_t ListenLocally(unsigned short* port) {
  const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  // Connections of before may linger on the port.
  const BOOL reuse = *port != 0;
  ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse),
               sizeof reuse);
  sockaddr_in address = Local(*port);
  int size = sizeof address;
  ::bind(listener, reinterpret_cast<sockaddr*>(&address), size);
  ::listen(listener, SOMAXCONN);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  *port = ::ntohs(address.sin_port);
  return listener;
}

void WakeListener(unsigned short port) {
  const SOCKET last = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address = Local(port);
  ::connect(last, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::closesocket(last);
}

bool SendAll(std::uintptr_t socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const int sent = ::send(socket, bytes.data(), static_cast<int>(bytes.size()), 0);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string RequestLine(std::uintptr_t socket) {
  std::string request;
  char piece[1024];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const int read = ::recv(socket, piece, sizeof piece, 0);
    if (read <= 0) return {};
    request.append(piece, static_cast<std::size_t>(read));
  }
  return request.substr(0, request.find("\r\n"));
}
