#include "discovery/stop_request.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

namespace mdns_wrapper {

StopRequest::StopRequest() {
  int ends[2];
  if (::pipe(ends) != 0) return;
  readEnd_ = Descriptor(ends[0]);
  writeEnd_ = Descriptor(ends[1]);
  for (const int end : ends) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, O_NONBLOCK);
  }
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

bool StopRequest::wait(std::chrono::milliseconds time) const {
  using std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kSlice{1000};  // without a pipe this is the polling interval
  const auto end = steady_clock::now() + time;
  while (!made()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    if (left.count() <= 0) break;
    pollfd entry{descriptor(), POLLIN, 0};
    ::poll(&entry, 1, static_cast<int>(std::min(left, kSlice).count()));
  }
  return made();
}

}  // namespace mdns_wrapper
