// Whose a connection is where the system has no socket diagnosis: by its table of sockets.
#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cstddef>

#include "os/file.h"
#include "os/system.h"
#include "support/child.h"
#include "support/testing.h"

namespace {

/// From now on this process gets no sockets for questions to the system.
bool TakeDiagnosisAway() {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_NETLINK, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAFNOSUPPORT),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{sizeof rules / sizeof *rules, rules};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// 0 when the table tells whose the connection is, and nothing once that is closed.
int AskTable(int listening, int connecting, bool isMapped) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  address.ss_family = static_cast<sa_family_t>(listening);
  if (listening == AF_INET) {
    reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  } else {
    reinterpret_cast<sockaddr_in6&>(address).sin6_addr = in6addr_loopback;
  }
  const Descriptor listener(::socket(listening, SOCK_STREAM, 0));
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener.get(), any, size) != 0 || ::listen(listener.get(), 1) != 0 ||
      ::getsockname(listener.get(), any, &size) != 0) {
    return 10;
  }
  if (isMapped) {
    sockaddr_in6 mapped{};
    mapped.sin6_family = AF_INET6;
    mapped.sin6_port = reinterpret_cast<const sockaddr_in&>(address).sin_port;
    ::inet_pton(AF_INET6, "::ffff:127.0.0.1", &mapped.sin6_addr);
    reinterpret_cast<sockaddr_in6&>(address) = mapped;
    size = sizeof mapped;
  }
  Descriptor client(::socket(connecting, SOCK_STREAM, 0));
  if (::connect(client.get(), any, size) != 0) return 11;
  const Descriptor accepted(::accept(listener.get(), nullptr, nullptr));
  if (os::OwnerOf(accepted.get()) != ::geteuid()) return 12;  // asked as usual
  if (!TakeDiagnosisAway() || ::socket(AF_NETLINK, SOCK_DGRAM, 0) >= 0) return 13;
  if (os::OwnerOf(accepted.get()) != ::geteuid()) return 14;
  client = Descriptor();
  return os::OwnerOf(accepted.get()) ? 15 : 0;
}

TEST(OwnerByTable, IsTheSame) {
  for (const auto& [listening, connecting, isMapped] : Table<int, int, bool>{
           {AF_INET, AF_INET, false}, {AF_INET6, AF_INET6, false}, {AF_INET, AF_INET6, true}}) {
    const auto ask = [&, listen = listening, connect = connecting, mapped = isMapped] {
      return AskTable(listen, connect, mapped);
    };
    EXPECT_EQ(ResultOf(::geteuid() == 0 ? StartAs({41002}, ask) : Start(ask)), 0)
        << listening << " " << connecting;
  }
}

}  // namespace
