// Whose a connection within this machine is. Root plays several accounts.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "os/file.h"
#include "os/system.h"
#include "support/child.h"
#include "support/testing.h"

namespace {

/// A socket of an address family on its loopback address, with a port of its own.
Descriptor BoundSocket(int family, in_port_t port = 0) {
  Descriptor socket(::socket(family, SOCK_STREAM, 0));
  const int on = 1;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  v4.sin_port = port;
  v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  v6.sin6_port = port;
  v6.sin6_addr = in6addr_loopback;
  const bool bound =
      family == AF_INET
          ? ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&v4), sizeof v4) == 0
          : ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&v6), sizeof v6) == 0;
  return bound ? std::move(socket) : Descriptor();
}

sockaddr_storage AddressOf(int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
  return address;
}

bool Connect(int socket, const sockaddr_storage& address) {
  return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

class ConnectionOwner : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    if (!listener_) GTEST_SKIP() << "this machine has no such address";
    ASSERT_EQ(::listen(listener_.get(), 8), 0);
  }
  Descriptor Accept() const { return Descriptor(::accept(listener_.get(), nullptr, nullptr)); }

  const Descriptor listener_ = BoundSocket(GetParam());
};

TEST_P(ConnectionOwner, IsToldWhileTheSocketIsOpen) {
  const sockaddr_storage address = AddressOf(listener_.get());
  Descriptor client(::socket(GetParam(), SOCK_STREAM, 0));
  ASSERT_TRUE(Connect(client.get(), address));
  const Descriptor accepted = Accept();
  EXPECT_EQ(os::OwnerOf(accepted.get()), ::geteuid());
  EXPECT_EQ(os::OwnerOf(client.get()), ::geteuid()) << "the other way round";
  ::shutdown(client.get(), SHUT_WR);
  EXPECT_EQ(os::OwnerOf(accepted.get()), ::geteuid()) << "it still listens to the answer";
  EXPECT_EQ(os::OwnerOf(listener_.get()), std::nullopt) << "no connection";
  EXPECT_EQ(os::OwnerOf(-1), std::nullopt);
  client = Descriptor();
  EXPECT_EQ(os::OwnerOf(accepted.get()), std::nullopt);
}

TEST_P(ConnectionOwner, IsAnotherAccountAndNobodyOnceThatHasLeft) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const sockaddr_storage address = AddressOf(listener_.get());
  for (const bool isDataUnread : {false, true}) {
    int hold[2];
    ASSERT_EQ(::pipe(hold), 0);
    const pid_t stranger = StartAs({41002}, [&] {
      const Descriptor client(::socket(GetParam(), SOCK_STREAM, 0));
      char byte = 0;
      return Connect(client.get(), address) && ::read(hold[0], &byte, 1) == 1 ? 0 : 1;
    });
    const Descriptor accepted = Accept();
    EXPECT_EQ(os::OwnerOf(accepted.get()), 41002u);
    if (isDataUnread) {
      EXPECT_EQ(::send(accepted.get(), "x", 1, MSG_NOSIGNAL), 1);
    }
    EXPECT_EQ(::write(hold[1], "", 1), 1);
    EXPECT_EQ(ResultOf(stranger), 0);
    EXPECT_EQ(os::OwnerOf(accepted.get()), std::nullopt) << "not root";
    for (const int end : hold) ::close(end);
  }
}

TEST_P(ConnectionOwner, IsNotWhoTakesThePortOfOneThatHasLeft) {
  const sockaddr_storage address = AddressOf(listener_.get());
  Descriptor client = BoundSocket(GetParam());
  const sockaddr_storage name = AddressOf(client.get());
  ASSERT_TRUE(Connect(client.get(), address));
  const Descriptor accepted = Accept();
  // The system forgets the closed socket after a second.
  const int seconds = 1;
  ::setsockopt(client.get(), IPPROTO_TCP, TCP_LINGER2, &seconds, sizeof seconds);
  client = Descriptor();
  const in_port_t port = GetParam() == AF_INET
                             ? reinterpret_cast<const sockaddr_in&>(name).sin_port
                             : reinterpret_cast<const sockaddr_in6&>(name).sin6_port;
  const Descriptor other = BoundSocket(GetParam(), port);
  ASSERT_TRUE(WaitUntil([&] {
    EXPECT_EQ(os::OwnerOf(accepted.get()), std::nullopt);
    return ::listen(other.get(), 1) == 0;
  }));
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
  while (std::chrono::steady_clock::now() < end) {
    ASSERT_EQ(os::OwnerOf(accepted.get()), std::nullopt) << "not who listens there now";
  }
}

INSTANTIATE_TEST_SUITE_P(Families, ConnectionOwner, ::testing::Values(AF_INET, AF_INET6));

}  // namespace
