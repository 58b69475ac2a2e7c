#include "updater/update_lock.h"

#include <cerrno>

#include "platform/file_lock.h"

namespace update {

UpdateLock::Taken UpdateLock::Take(const std::string& file, std::chrono::milliseconds patience) {
  const int error = OpenLocked(file, std::chrono::steady_clock::now() + patience, &held_);
  if (error == EWOULDBLOCK) return Taken::NoOtherHasIt;
  return error == 0 ? Taken::Yes : Taken::NoFailed;
}

}  // namespace update
