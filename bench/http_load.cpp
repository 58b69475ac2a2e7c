// A load on an HTTP server: qv_http_load PORT CONNECTIONS REQUESTS PATH BODY
//
// Posts the body on kept-alive connections, each of which sends its next request when the reply to
// the last is whole, until so many replies have come. Exits with 1 when one is no 200.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

[[noreturn]] void Fail(const char* why) {
  std::fprintf(stderr, "qv_http_load: %s\n", why);
  std::exit(1);
}

int Connect(int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail("cannot connect");
  }
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return socket;
}

/// The length of the whole reply whose header stands in the text, 0 while the header is not whole.
std::size_t LengthOf(const std::string& reply) {
  const auto end = reply.find("\r\n\r\n");
  if (end == reply.npos) return 0;
  if (!reply.starts_with("HTTP/1.1 200 ")) Fail("a reply is no 200");
  constexpr std::string_view kLength = "Content-Length: ";
  const auto field = reply.find(kLength);
  if (field > end) Fail("a reply has no length");
  return end + 4 + std::strtoul(reply.c_str() + field + kLength.size(), nullptr, 10);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) Fail("PORT CONNECTIONS REQUESTS PATH BODY");
  const int port = std::atoi(argv[1]);
  const std::string body = argv[5];
  const std::string request =
      std::string("POST ") + argv[4] + " HTTP/1.1\r\nHost: 127.0.0.1:" + argv[1] +
      "\r\nUser-Agent: load\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  const auto send = [&request](int socket) {
    if (::send(socket, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size())) {
      Fail("cannot send");
    }
  };
  std::vector<pollfd> sockets;
  for (int i = 0; i < std::atoi(argv[2]); ++i) {
    sockets.push_back({Connect(port), POLLIN, 0});
    send(sockets.back().fd);
  }
  std::vector<std::string> replies(sockets.size());
  for (int left = std::atoi(argv[3]); left > 0;) {
    if (::poll(sockets.data(), sockets.size(), 10'000) <= 0) Fail("no reply for ten seconds");
    for (std::size_t i = 0; i < sockets.size(); ++i) {
      if (sockets[i].revents == 0) continue;
      char bytes[16 * 1024];
      const ssize_t count = ::recv(sockets[i].fd, bytes, sizeof bytes, 0);
      if (count <= 0) Fail("a connection has ended");
      replies[i].append(bytes, static_cast<std::size_t>(count));
      const std::size_t length = LengthOf(replies[i]);
      if (length == 0 || replies[i].size() < length) continue;
      replies[i].erase(0, length);
      --left;
      send(sockets[i].fd);
    }
  }
}
