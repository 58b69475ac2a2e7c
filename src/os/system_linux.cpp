#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
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

char** Environment() { return ::environ; }

int AddStartFolder(posix_spawn_file_actions_t* actions, const char* folder) {
  return ::posix_spawn_file_actions_addchdir_np(actions, folder);
}

bool FillRandom(void* target, std::size_t size) { return ::getentropy(target, size) == 0; }

int FlushToDisk(int descriptor) { return ::fdatasync(descriptor) == 0 ? 0 : errno; }

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

}  // namespace os
