#include "platform/file_lock.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>

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
