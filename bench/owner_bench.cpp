// What each connection costs more: the look-up of the account at its other end, asked by the end
// that accepted it.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "os/file.h"
#include "os/system.h"

namespace {

template <class Address>
void OwnerOfConnection(benchmark::State& state, Address address) {
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  const Descriptor listener(::socket(any->sa_family, SOCK_STREAM, 0));
  const Descriptor client(::socket(any->sa_family, SOCK_STREAM, 0));
  if (::bind(listener.get(), any, size) != 0 || ::listen(listener.get(), 1) != 0 ||
      ::getsockname(listener.get(), any, &size) != 0 || ::connect(client.get(), any, size) != 0) {
    state.SkipWithError("there is no connection");
    return;
  }
  const Descriptor accepted(::accept(listener.get(), nullptr, nullptr));
  for (auto _ : state) {
    if (os::OwnerOf(accepted.get()) != ::geteuid()) state.SkipWithError("the owner is not told");
  }
}

void OwnerOfConnectionV4(benchmark::State& state) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  OwnerOfConnection(state, address);
}
BENCHMARK(OwnerOfConnectionV4);

void OwnerOfConnectionV6(benchmark::State& state) {
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  OwnerOfConnection(state, address);
}
BENCHMARK(OwnerOfConnectionV6);

}  // namespace
