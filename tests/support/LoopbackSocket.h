// Listening sockets on 127.0.0.1 for the test servers, and a loopback port nobody listens on.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test_support {

struct LoopbackSocket {
  int fd = -1;
  int port = 0;
};

// A TCP socket bound to an ephemeral port of 127.0.0.1, listening when `backlog` > 0.
inline LoopbackSocket bindLoopback(int backlog) {
  LoopbackSocket bound;
  bound.fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(bound.fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  if (backlog > 0) ::listen(bound.fd, backlog);
  socklen_t length = sizeof address;
  ::getsockname(bound.fd, reinterpret_cast<sockaddr*>(&address), &length);
  bound.port = ntohs(address.sin_port);
  return bound;
}

// A loopback port on which nothing listens (bound once, then closed): connecting is refused.
inline int refusedPort() {
  const LoopbackSocket probe = bindLoopback(0);
  ::close(probe.fd);
  return probe.port;
}

}  // namespace test_support
