// Ownership of one file descriptor.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

/// Closes its descriptor at the end of its life and keeps errno while it does.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) noexcept : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() {
    if (value_ < 0) return;
    const int saved = errno;
    ::close(value_);
    errno = saved;
  }

  explicit operator bool() const { return value_ >= 0; }
  int get() const { return value_; }
  /// Gives the descriptor to the caller.
  int Release() { return std::exchange(value_, -1); }

 private:
  int value_;
};
