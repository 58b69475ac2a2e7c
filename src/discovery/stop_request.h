// The wish that a worker's loop ends, which the loop polls and which ends its waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/descriptor.h"

namespace mdns_wrapper {

/// Any thread may call. When the system has no pipe left the request still holds, but ends no wait
/// early.
class StopRequest {
 public:
  StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;

  void make();
  void takeBack();
  bool made() const { return value_.load() != 0; }
  /// Becomes readable when the request is made; for poll. -1 when there is none.
  int descriptor() const { return readEnd_.get(); }

 private:
  std::mutex mutex_;  ///< value and pipe change together
  std::atomic<std::int32_t> value_{0};
  Descriptor readEnd_;
  Descriptor writeEnd_;
};

}  // namespace mdns_wrapper
