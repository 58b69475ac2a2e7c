#include "discovery/stop_request.h"

#include <unistd.h>

#include "platform/os.h"

namespace mdns_wrapper {

StopRequest::StopRequest() {
  int ends[2];
  if (!os::OpenPipe(ends)) return;
  readEnd_ = Descriptor(ends[0]);
  writeEnd_ = Descriptor(ends[1]);
}

void StopRequest::make() {
  const std::lock_guard lock(mutex_);
  if (value_.exchange(1) != 0) return;
  [[maybe_unused]] const auto written = ::write(writeEnd_.get(), "", 1);
}

void StopRequest::takeBack() {
  const std::lock_guard lock(mutex_);
  if (value_.exchange(0) == 0) return;
  char byte;
  [[maybe_unused]] const auto read = ::read(readEnd_.get(), &byte, 1);
}

}  // namespace mdns_wrapper
