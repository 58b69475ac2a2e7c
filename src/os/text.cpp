#include "os/text.h"

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "os/system.h"

namespace {

constexpr std::size_t kBytes = kIdentifierLength / 2;

void FillWithoutRandom(unsigned char (&bytes)[kBytes]) {
  static std::atomic<std::uint32_t> counter{0};
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::uint64_t nanoseconds = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                                    static_cast<std::uint64_t>(now.tv_nsec);
  const auto process = static_cast<std::uint32_t>(::getpid());
  const std::uint32_t number = ++counter;
  static_assert(sizeof nanoseconds + sizeof process + sizeof number == kBytes);
  std::memcpy(bytes, &nanoseconds, sizeof nanoseconds);
  std::memcpy(bytes + sizeof nanoseconds, &process, sizeof process);
  std::memcpy(bytes + sizeof nanoseconds + sizeof process, &number, sizeof number);
}

}  // namespace

std::array<char, kIdentifierLength + 1> MakeIdentifier() {
  constexpr char kDigits[] = "0123456789abcdef";
  unsigned char bytes[kBytes];
  if (!os::FillRandom(bytes, sizeof bytes)) FillWithoutRandom(bytes);
  std::array<char, kIdentifierLength + 1> text{};
  char* to = text.data();
  for (const unsigned char byte : bytes) {
    *to++ = kDigits[byte >> 4];
    *to++ = kDigits[byte & 0xF];
  }
  return text;
}
