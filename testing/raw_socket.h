// What servers that answer in their own way share.
#ifndef KUPDATE_TESTING_RAW_SOCKET_H_
#define KUPDATE_TESTING_RAW_SOCKET_H_

#include <cstdint>
#include <string>
#include <string_view>

/// Listens on a port of 127.0.0.1. Sockets must have been started.
/// @param port  0: any free one, which it is then
/// @return a socket of the caller's
std::uintptr_t ListenLocally(unsigned short* port);

/// Connects to that port and ends the connection: whoever waits for one wakes.
void WakeListener(unsigned short port);

/// Whether all was taken.
bool SendAll(std::uintptr_t socket, std::string_view bytes);

/// The first line of a request, once all of its head has come; empty when it does not come.
std::string RequestLine(std::uintptr_t socket);

#endif  // KUPDATE_TESTING_RAW_SOCKET_H_
