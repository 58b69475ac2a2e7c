#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>
#include <utility>

int LockUntil(std::chrono::steady_clock::time_point end, int descriptor) {
  // Short, or a writer that asks now and then would find no gap between those of a busy one.
  constexpr std::chrono::microseconds kPause(250);
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    if (std::chrono::steady_clock::now() >= end) return EWOULDBLOCK;
    std::this_thread::sleep_for(kPause);
  }
  return 0;
}

bool IsNamed(const char* path, int descriptor) {
  struct stat open {};
  struct stat named {};
  return ::fstat(descriptor, &open) == 0 && ::lstat(path, &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

int OpenLocked(const std::string& path, std::chrono::steady_clock::time_point end,
               Descriptor* file) {
  do {
    Descriptor opened(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!opened) return errno;
    if (const int error = LockUntil(end, opened.get())) return error;
    if (IsNamed(path.c_str(), opened.get())) {
      *file = std::move(opened);
      return 0;
    }
  } while (std::chrono::steady_clock::now() < end);
  return ENOENT;
}
