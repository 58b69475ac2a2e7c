#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/inet_diag.h>
#include <linux/magic.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "os/file.h"
#include "os/system.h"

namespace os {

namespace {

/// What the system adds to the path of a file that was removed or replaced under its program.
constexpr std::string_view kReplaced = " (deleted)";

std::string ProgramAsTold(int process) {
  char path[PATH_MAX];
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

bool TellsReplacement(const std::string& path) {
  return path.ends_with(kReplaced) && ::access(path.c_str(), F_OK) != 0;
}

/// The socket at the other end of a connection, as the system names it.
struct OtherEnd {
  std::uint8_t family = 0;
  inet_diag_sockid name{};  // its own address and port as the source, ours as the destination
};

/// One address and port of a connection. False when it is neither IPv4 nor IPv6.
bool ReadAddress(const sockaddr_storage& address, std::uint8_t* family, __be32 (&words)[4],
                 __be16* port) {
  *family = static_cast<std::uint8_t>(address.ss_family);
  if (address.ss_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    words[0] = v4.sin_addr.s_addr;
    *port = v4.sin_port;
    return true;
  }
  const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
  std::memcpy(words, &v6.sin6_addr, sizeof words);
  *port = v6.sin6_port;
  return address.ss_family == AF_INET6;
}

std::optional<OtherEnd> OtherEndOf(int connection) {
  sockaddr_storage ours{};
  sockaddr_storage theirs{};
  socklen_t size = sizeof ours;
  if (::getsockname(connection, reinterpret_cast<sockaddr*>(&ours), &size) != 0) return {};
  size = sizeof theirs;
  if (::getpeername(connection, reinterpret_cast<sockaddr*>(&theirs), &size) != 0) return {};
  OtherEnd end;
  inet_diag_sockid& name = end.name;
  if (!ReadAddress(theirs, &end.family, name.idiag_src, &name.idiag_sport) ||
      !ReadAddress(ours, &end.family, name.idiag_dst, &name.idiag_dport)) {
    return {};
  }
  name.idiag_cookie[0] = name.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  return end;
}

/// Whether what the system tells of a socket tells its owner. A closed socket is shown with user 0
/// and without an inode. One that only begins to connect may have the ports of an older connection.
bool TellsOwner(unsigned int state, unsigned long inode) {
  switch (state) {
    case TCP_ESTABLISHED:
    case TCP_FIN_WAIT1:
    case TCP_FIN_WAIT2:
    case TCP_CLOSE_WAIT:
    case TCP_LAST_ACK:
    case TCP_CLOSING:
      return inode != 0;
    default:
      return false;
  }
}

/// By one exact question to the system's socket diagnosis. False when that does not answer.
bool AskDiagnosis(const OtherEnd& end, std::optional<uid_t>* owner) {
  // A system without diagnosis answers as for a connection that is not there.
  static constinit std::atomic<bool> isThere = false;
  struct {
    nlmsghdr header{};
    inet_diag_req_v2 question{};
  } request;
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.question.sdiag_family = end.family;
  request.question.sdiag_protocol = IPPROTO_TCP;
  request.question.idiag_states = ~0u;
  request.question.id = end.name;

  const Descriptor socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!socket || ::send(socket.get(), &request, sizeof request, 0) != sizeof request) return false;
  // The answer is there when the question has been sent.
  alignas(nlmsghdr) char answer[1024];
  const ssize_t size = ::recv(socket.get(), answer, sizeof answer, MSG_DONTWAIT);
  if (size < static_cast<ssize_t>(sizeof(nlmsghdr))) return false;
  const auto& header = reinterpret_cast<const nlmsghdr&>(answer);
  if (header.nlmsg_type == NLMSG_ERROR) {
    const auto& error = reinterpret_cast<const nlmsgerr&>(answer[NLMSG_HDRLEN]);
    return size >= static_cast<ssize_t>(NLMSG_LENGTH(sizeof error.error)) &&
           error.error == -ENOENT && isThere;
  }
  const auto& found = reinterpret_cast<const inet_diag_msg&>(answer[NLMSG_HDRLEN]);
  if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY ||
      size < static_cast<ssize_t>(NLMSG_LENGTH(sizeof found))) {
    return false;
  }
  isThere = true;
  // Where the connection is gone the answer may be about who listens at its port.
  const bool isTheOne =
      found.id.idiag_sport == end.name.idiag_sport && found.id.idiag_dport == end.name.idiag_dport;
  if (isTheOne && TellsOwner(found.idiag_state, found.idiag_inode)) *owner = found.idiag_uid;
  return true;
}

/// An address and port as the system's table of sockets shows them. `isMapped`: an IPv4 address as
/// a socket of IPv6 has it.
std::string AsInTable(const __be32 (&words)[4], __be16 port, bool isV6, bool isMapped) {
  char text[48];
  if (isV6) {
    std::snprintf(text, sizeof text, "%08X%08X%08X%08X:%04X", words[0], words[1], words[2],
                  words[3], ntohs(port));
  } else {
    std::snprintf(text, sizeof text, "%s%08X:%04X", isMapped ? "0000000000000000FFFF0000" : "",
                  words[0], ntohs(port));
  }
  return text;
}

/// By the table of all sockets of this machine, which is a file.
std::optional<uid_t> FindInTable(const char* file, const OtherEnd& end, bool isMapped) {
  const bool isV6 = end.family == AF_INET6;
  const inet_diag_sockid& name = end.name;
  const std::string wanted = " " + AsInTable(name.idiag_src, name.idiag_sport, isV6, isMapped) +
                             " " + AsInTable(name.idiag_dst, name.idiag_dport, isV6, isMapped) +
                             " ";
  std::string table;
  if (ReadWholeFile(file, &table) != 0) return {};
  const auto at = table.find(wanted);
  if (at == table.npos) return {};
  unsigned int state = 0;
  unsigned int user = 0;
  unsigned long inode = 0;
  // Behind the state: queues, timer, retransmissions, user, timeout, inode.
  if (std::sscanf(table.c_str() + at + wanted.size(), "%2X %*s %*s %*s %u %*s %lu", &state, &user,
                  &inode) != 3 ||
      !TellsOwner(state, inode)) {
    return {};
  }
  return user;
}

}  // namespace

std::string ExecutablePath() { return ProgramOf(::getpid()); }

std::string ProgramOf(int process) {
  std::string path = ProgramAsTold(process);
  if (TellsReplacement(path)) path.resize(path.size() - kReplaced.size());
  return path;
}

bool IsExecutableReplaced() { return TellsReplacement(ProgramAsTold(::getpid())); }

std::uint32_t ThreadNumber() {
  static thread_local std::uint32_t number = 0;
  if (number == 0) number = static_cast<std::uint32_t>(::gettid());
  return number;
}

std::uint64_t PhysicalFootprint() {
  std::string text;
  unsigned long long total = 0;
  unsigned long long resident = 0;
  if (ReadWholeFile("/proc/self/statm", &text) != 0 ||
      std::sscanf(text.c_str(), "%llu %llu", &total, &resident) != 2) {
    return 0;
  }
  return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

void KeepLittleMemory() {
  // Unless they are set, both grow with what is freed: then each of many heaps keeps up to 64 MiB
  // at its end, which malloc_trim does not take.
  ::mallopt(M_MMAP_THRESHOLD, 256 * 1024);
  ::mallopt(M_TRIM_THRESHOLD, 1024 * 1024);
}

void GiveMemoryBack() { ::malloc_trim(0); }

char** Environment() { return ::environ; }

int AddStartFolder(posix_spawn_file_actions_t* actions, const char* folder) {
  return ::posix_spawn_file_actions_addchdir_np(actions, folder);
}

bool FillRandom(void* target, std::size_t size) { return ::getentropy(target, size) == 0; }

int FlushToDisk(int descriptor) { return ::fdatasync(descriptor) == 0 ? 0 : errno; }

std::string PathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

int FlushWhollyToDisk(int descriptor) { return ::fsync(descriptor) == 0 ? 0 : errno; }

// The library puts "sem." before it.
std::size_t LongestSemaphoreName() { return NAME_MAX - 4; }

std::timespec ModificationTime(const struct stat& status) { return status.st_mtim; }
std::timespec ChangeTime(const struct stat& status) { return status.st_ctim; }

bool StampsChanges(int descriptor) {
  constexpr std::uint32_t kZfs = 0x2FC12FC1;  // the others have names in the system's header
  struct statfs fileSystem {};
  if (::fstatfs(descriptor, &fileSystem) != 0) return false;
  // FAT and exFAT are left out on purpose: their change time is the modification time.
  switch (static_cast<std::uint32_t>(fileSystem.f_type)) {
    case EXT4_SUPER_MAGIC:  // ext2 and ext3, too
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
    case kZfs:
      return true;
    default:
      return false;
  }
}

std::uint64_t SuspendedTime() {
  std::timespec all{};
  std::timespec awake{};
  if (::clock_gettime(CLOCK_BOOTTIME, &all) != 0 || ::clock_gettime(CLOCK_MONOTONIC, &awake) != 0) {
    return 0;
  }
  const std::int64_t milliseconds =
      (all.tv_sec - awake.tv_sec) * 1000 + (all.tv_nsec - awake.tv_nsec) / 1'000'000;
  return milliseconds > 0 ? static_cast<std::uint64_t>(milliseconds) : 0;
}

std::uint32_t CarrierChanges(const char* interface) {
  std::string text;
  const std::string file = std::string("/sys/class/net/") + interface + "/carrier_changes";
  if (ReadWholeFile(file.c_str(), &text) != 0) return 0;
  return static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

std::size_t SizeOfAddress(const sockaddr& address) {
  switch (address.sa_family) {
    case AF_INET:
      return sizeof(sockaddr_in);
    case AF_INET6:
      return sizeof(sockaddr_in6);
    default:
      return sizeof(sockaddr);
  }
}

int OpenDatagramSocket(int family) {
  Descriptor socket(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
  if (!socket) return -1;
  const int off = 0;
  const int failed =
      family == AF_INET
          ? ::setsockopt(socket.get(), IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off)
          : ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_MULTICAST_ALL, &off, sizeof off);
  // Old systems do not know the option for IPv6: then some packets come more than once.
  return failed == 0 || errno == ENOPROTOOPT ? socket.Release() : -1;
}

bool SendByInterface(int socket, int family, unsigned int interface) {
  const std::uint32_t index = htonl(interface);
  return family == AF_INET
             ? ::setsockopt(socket, IPPROTO_IP, IP_UNICAST_IF, &index, sizeof index) == 0
             : ::setsockopt(socket, IPPROTO_IPV6, IPV6_UNICAST_IF, &index, sizeof index) == 0;
}

bool OpenPipe(int ends[2]) { return ::pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0; }

std::optional<uid_t> OwnerOf(int connection) {
  const std::optional<OtherEnd> end = OtherEndOf(connection);
  if (!end) return {};
  std::optional<uid_t> owner;
  if (AskDiagnosis(*end, &owner)) return owner;
  if (end->family == AF_INET6) return FindInTable("/proc/net/tcp6", *end, false);
  owner = FindInTable("/proc/net/tcp", *end, false);
  return owner ? owner : FindInTable("/proc/net/tcp6", *end, true);
}

}  // namespace os
