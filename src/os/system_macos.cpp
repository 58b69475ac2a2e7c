#include <crt_externs.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <libproc.h>
#include <mach/mach.h>
#include <mach/mach_time.h>
#include <malloc/malloc.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "os/system.h"

namespace os {

namespace {

/// One item of the system's list of TCP sockets (net.inet.tcp.pcblist_n): its length and kind, then
/// members at fixed places. The system's public headers do not declare them.
class SocketItem {
 public:
  static constexpr std::uint32_t kSocket = 0x001;     // struct xsocket_n
  static constexpr std::uint32_t kAddresses = 0x010;  // struct xinpcb_n
  static constexpr std::size_t kForeignPort = 16;     // of xinpcb_n; ports are in network order
  static constexpr std::size_t kLocalPort = 18;
  static constexpr std::size_t kForeignAddress = 48;  // 16 bytes, of which IPv4 has the last four
  static constexpr std::size_t kLocalAddress = 64;
  static constexpr std::size_t kState = 26;  // of xsocket_n
  static constexpr std::size_t kUser = 64;

  explicit SocketItem(std::string_view bytes) : bytes_(bytes) {}
  /// The member at that place, zero where the item is shorter.
  template <class Member>
  Member Get(std::size_t place) const {
    Member member{};
    if (place + sizeof member <= bytes_.size()) {
      std::memcpy(&member, bytes_.data() + place, sizeof member);
    }
    return member;
  }
  std::uint32_t kind() const { return Get<std::uint32_t>(4); }

 private:
  std::string_view bytes_;
};

/// An end of a connection: port and address, that of IPv4 behind twelve zeros.
struct ConnectionEnd {
  std::uint16_t port = 0;
  in6_addr address{};

  bool operator==(const ConnectionEnd& other) const {
    return port == other.port && std::memcmp(&address, &other.address, sizeof address) == 0;
  }
};

std::optional<ConnectionEnd> ReadEnd(const sockaddr_storage& from) {
  ConnectionEnd end;
  if (from.ss_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(from);
    end.port = v4.sin_port;
    std::memcpy(end.address.s6_addr + 12, &v4.sin_addr, sizeof v4.sin_addr);
    return end;
  }
  if (from.ss_family != AF_INET6) return {};
  const auto& v6 = reinterpret_cast<const sockaddr_in6&>(from);
  end.port = v6.sin6_port;
  end.address = v6.sin6_addr;
  return end;
}

ConnectionEnd ReadEnd(const SocketItem& item, std::size_t port, std::size_t address, bool isV4) {
  ConnectionEnd end;
  end.port = item.Get<std::uint16_t>(port);
  if (isV4) {
    const auto v4 = item.Get<std::uint32_t>(address + 12);
    std::memcpy(end.address.s6_addr + 12, &v4, sizeof v4);
  } else {
    end.address = item.Get<in6_addr>(address);
  }
  return end;
}

/// The list of all TCP sockets, empty when the system does not give it.
std::vector<char> ListOfSockets() {
  constexpr const char* kName = "net.inet.tcp.pcblist_n";
  // It may grow between the two calls.
  for (int attempt = 0; attempt < 5; ++attempt) {
    std::size_t size = 0;
    if (::sysctlbyname(kName, nullptr, &size, nullptr, 0) != 0) break;
    std::vector<char> list(size + size / 4);
    size = list.size();
    if (::sysctlbyname(kName, list.data(), &size, nullptr, 0) == 0) {
      list.resize(size);
      return list;
    }
    if (errno != ENOMEM) break;
  }
  return {};
}

}  // namespace

namespace {

/// A path without links, "" when nothing is there.
std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? real.get() : "";
}

/// The path of a process's file now: none when the file is gone, another when it was renamed.
std::string PathOfFile(int process) {
  char path[PROC_PIDPATHINFO_MAXSIZE];
  const int length = ::proc_pidpath(process, path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

/// The path that a process was started by, as its starter gave it; "" for other accounts' ones.
std::string PathOfStart(int process) {
  int name[] = {CTL_KERN, KERN_PROCARGS2, process};
  std::size_t size = 0;
  if (::sysctl(name, 3, nullptr, &size, nullptr, 0) != 0) return {};
  std::string arguments(size, '\0');
  if (::sysctl(name, 3, arguments.data(), &size, nullptr, 0) != 0) return {};
  arguments.resize(size);
  // Their count, then the path, then they themselves.
  constexpr std::size_t kCount = sizeof(int);
  if (size <= kCount) return {};
  return arguments.substr(kCount, arguments.find('\0', kCount) - kCount);
}

/// What this process runs, looked up before anybody can have replaced it.
struct OwnFile {
  std::string path = PathOfFile(::getpid());
  struct stat status {};
  bool known = false;

  OwnFile() {
    if (path.empty()) path = ProgramOf(::getpid());  // in a library that is loaded later
    known = ::stat(path.c_str(), &status) == 0;
  }
};

const OwnFile& TheOwnFile() {
  static const OwnFile file;
  return file;
}

[[maybe_unused]] const OwnFile& g_lookedUpAtTheStart = TheOwnFile();

}  // namespace

std::string ExecutablePath() { return TheOwnFile().path; }

std::string ProgramOf(int process) {
  std::string path = PathOfStart(process);
  if (!path.empty() && path.front() != '/') {
    proc_vnodepathinfo folders{};
    const int told = ::proc_pidinfo(process, PROC_PIDVNODEPATHINFO, 0, &folders, sizeof folders);
    path = told == sizeof folders ? folders.pvi_cdir.vip_path + ("/" + path) : "";
  }
  if (std::string real = RealPath(path); !real.empty()) return real;
  std::string now = PathOfFile(process);
  return now.empty() ? path : now;
}

bool IsExecutableReplaced() {
  const OwnFile& file = TheOwnFile();
  struct stat now {};
  if (!file.known) return false;
  if (::stat(file.path.c_str(), &now) != 0) return errno == ENOENT;
  return now.st_dev != file.status.st_dev || now.st_ino != file.status.st_ino;
}

std::uint32_t ThreadNumber() { return ::pthread_mach_thread_np(::pthread_self()); }

std::uint64_t PhysicalFootprint() {
  task_vm_info_data_t information{};
  mach_msg_type_number_t count = TASK_VM_INFO_COUNT;
  const kern_return_t result = ::task_info(::mach_task_self(), TASK_VM_INFO,
                                           reinterpret_cast<task_info_t>(&information), &count);
  return result == KERN_SUCCESS ? information.phys_footprint : 0;
}

void KeepLittleMemory() {}

void GiveMemoryBack() { ::malloc_zone_pressure_relief(nullptr, 0); }

char** Environment() { return *::_NSGetEnviron(); }

int AddStartFolder(posix_spawn_file_actions_t* actions, const char* folder) {
  // macOS 26 calls it deprecated, and earlier systems do not have the name without "_np".
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
  return ::posix_spawn_file_actions_addchdir_np(actions, folder);
#pragma clang diagnostic pop
}

bool FillRandom(void* target, std::size_t size) { return ::getentropy(target, size) == 0; }

int FlushToDisk(int descriptor) {
  // fsync stops at the drive's own cache here. File systems without the full flush have fsync.
  if (::fcntl(descriptor, F_FULLFSYNC) == 0) return 0;
  return ::fsync(descriptor) == 0 ? 0 : errno;
}

// Who opens this path shares the descriptor's place in the file.
std::string PathOfDescriptor(int descriptor) {
  ::lseek(descriptor, 0, SEEK_SET);
  return "/dev/fd/" + std::to_string(descriptor);
}

// Folders have the same cache before them.
int FlushWhollyToDisk(int descriptor) { return FlushToDisk(descriptor); }

std::size_t LongestSemaphoreName() { return 30; }

std::timespec ModificationTime(const struct stat& status) { return status.st_mtimespec; }
std::timespec ChangeTime(const struct stat& status) { return status.st_ctimespec; }

bool StampsChanges(int descriptor) {
  struct statfs fileSystem {};
  if (::fstatfs(descriptor, &fileSystem) != 0 || (fileSystem.f_flags & MNT_LOCAL) == 0)
    return false;
  const std::string_view type = fileSystem.f_fstypename;
  return type == "apfs" || type == "hfs";
}

std::uint64_t SuspendedTime() {
  mach_timebase_info_data_t base{};
  if (::mach_timebase_info(&base) != KERN_SUCCESS) return 0;
  const std::uint64_t awake = ::mach_absolute_time();
  const std::uint64_t all = ::mach_continuous_time();
  return all > awake ? (all - awake) / 1'000'000 * base.numer / base.denom : 0;
}

// The system keeps no count; the time of the last change is another number each time as well.
std::uint32_t CarrierChanges(const char* interface) {
  ifaddrs* entries = nullptr;
  if (::getifaddrs(&entries) != 0) return 0;
  std::uint32_t changes = 0;
  for (const ifaddrs* entry = entries; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_LINK) continue;
    if (entry->ifa_data == nullptr || std::strcmp(entry->ifa_name, interface) != 0) continue;
    const auto& last = static_cast<const if_data*>(entry->ifa_data)->ifi_lastchange;
    changes = static_cast<std::uint32_t>(last.tv_sec * 1000 + last.tv_usec / 1000);
  }
  ::freeifaddrs(entries);
  return changes;
}

std::size_t SizeOfAddress(const sockaddr& address) { return address.sa_len; }

// Sockets hear the groups alone that they joined themselves, from the start. Nothing here is
// close-on-exec in one step: a program that is started in between gets the descriptor, too.
int OpenDatagramSocket(int family) {
  const int socket = ::socket(family, SOCK_DGRAM, IPPROTO_UDP);
  if (socket >= 0) ::fcntl(socket, F_SETFD, FD_CLOEXEC);
  return socket;
}

bool SendByInterface(int socket, int family, unsigned int interface) {
  return family == AF_INET
             ? ::setsockopt(socket, IPPROTO_IP, IP_BOUND_IF, &interface, sizeof interface) == 0
             : ::setsockopt(socket, IPPROTO_IPV6, IPV6_BOUND_IF, &interface, sizeof interface) == 0;
}

bool OpenPipe(int ends[2]) {
  if (::pipe(ends) != 0) return false;
  for (int i = 0; i < 2; ++i) {
    ::fcntl(ends[i], F_SETFD, FD_CLOEXEC);
    ::fcntl(ends[i], F_SETFL, O_NONBLOCK);
  }
  return true;
}

std::optional<uid_t> OwnerOf(int connection) {
  constexpr std::int16_t kNobodyHasIt = 0x0001;  // SS_NOFDREF: the socket is closed
  constexpr std::int16_t kConnecting = 0x0004;   // SS_ISCONNECTING
  constexpr std::size_t kHeader = 24;            // struct xinpgen, at both ends of the list
  sockaddr_storage ours{};
  sockaddr_storage theirs{};
  socklen_t size = sizeof ours;
  if (::getsockname(connection, reinterpret_cast<sockaddr*>(&ours), &size) != 0) return {};
  size = sizeof theirs;
  if (::getpeername(connection, reinterpret_cast<sockaddr*>(&theirs), &size) != 0) return {};
  // Seen from the other socket we are the foreign end.
  const auto local = ReadEnd(theirs);
  const auto foreign = ReadEnd(ours);
  if (!local || !foreign) return {};
  const bool isV4 = ours.ss_family == AF_INET;

  const std::vector<char> list = ListOfSockets();
  bool isTheOne = false;
  for (std::size_t at = kHeader; at + 2 * sizeof(std::uint32_t) <= list.size();) {
    const std::size_t left = list.size() - at;
    const std::size_t length =
        SocketItem(std::string_view(list.data() + at, left)).Get<std::uint32_t>(0);
    if (length <= kHeader || length > left) return {};
    const SocketItem item(std::string_view(list.data() + at, length));
    // The addresses of a socket come before what else is told of it.
    if (item.kind() == SocketItem::kAddresses) {
      isTheOne =
          ReadEnd(item, SocketItem::kLocalPort, SocketItem::kLocalAddress, isV4) == *local &&
          ReadEnd(item, SocketItem::kForeignPort, SocketItem::kForeignAddress, isV4) == *foreign;
    } else if (item.kind() == SocketItem::kSocket && isTheOne) {
      const auto state = item.Get<std::int16_t>(SocketItem::kState);
      if ((state & (kNobodyHasIt | kConnecting)) != 0) return {};
      return item.Get<uid_t>(SocketItem::kUser);
    }
    at += (length + 7) / 8 * 8;
  }
  return {};
}

}  // namespace os
