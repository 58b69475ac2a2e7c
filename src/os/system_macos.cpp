#include <crt_externs.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <libproc.h>
#include <mach/mach.h>
#include <mach/mach_time.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "os/system.h"

namespace os {

std::string ExecutablePath() { return ProgramOf(::getpid()); }

std::string ProgramOf(int process) {
  char path[PROC_PIDPATHINFO_MAXSIZE];
  const int length = ::proc_pidpath(process, path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

bool IsExecutableReplaced() {
  const std::string path = ExecutablePath();
  return !path.empty() && ::access(path.c_str(), F_OK) != 0;
}

std::uint32_t ThreadNumber() { return ::pthread_mach_thread_np(::pthread_self()); }

std::uint64_t PhysicalFootprint() {
  task_vm_info_data_t information{};
  mach_msg_type_number_t count = TASK_VM_INFO_COUNT;
  const kern_return_t result = ::task_info(::mach_task_self(), TASK_VM_INFO,
                                           reinterpret_cast<task_info_t>(&information), &count);
  return result == KERN_SUCCESS ? information.phys_footprint : 0;
}

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

}  // namespace os
