#include "updater/update_lock.h"

#include <fcntl.h>

#include "platform/file_lock.h"

namespace update {

UpdateLock::Taken UpdateLock::Take(const std::string& file, std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  do {
    Descriptor opened(::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!opened) return Taken::NoFailed;
    const int error = LockUntil(end, opened.get());
    if (error != 0) return error == EWOULDBLOCK ? Taken::NoOtherHasIt : Taken::NoFailed;
    // The cache folder may be cleared at any time: a lock on a file without a name is none.
    if (IsNamed(file.c_str(), opened.get())) {
      held_ = std::move(opened);
      return Taken::Yes;
    }
  } while (std::chrono::steady_clock::now() < end);
  return Taken::NoFailed;
}

}  // namespace update
