// The lock that an updater holds for its whole life, so that anybody can tell whether one runs. The
// system releases it with the process, however that ends.
#pragma once

#include <chrono>
#include <string>

#include "platform/descriptor.h"

namespace update {

class UpdateLock {
 public:
  enum class Taken { Yes, NoOtherHasIt, NoFailed };
  /// Waits for another holder at most that long.
  Taken Take(const std::string& file, std::chrono::milliseconds patience);

 private:
  Descriptor held_;
};

}  // namespace update
