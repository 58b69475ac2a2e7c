#include "updater/update_lock.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/file_lock.h"

namespace update {

UpdateLock::Taken UpdateLock::Take(const std::string& file, std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (;;) {
    Descriptor opened(::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!opened) return Taken::NoFailed;
    const int error = LockUntil(end, opened.get());
    if (error != 0) return error == EWOULDBLOCK ? Taken::NoOtherHasIt : Taken::NoFailed;
    // The cache folder may be cleared at any time: a lock on a file without a name is none.
    struct stat open {};
    struct stat named {};
    if (::fstat(opened.get(), &open) == 0 && ::lstat(file.c_str(), &named) == 0 &&
        open.st_ino == named.st_ino && open.st_dev == named.st_dev) {
      held_ = std::move(opened);
      return Taken::Yes;
    }
  }
}

}  // namespace update
