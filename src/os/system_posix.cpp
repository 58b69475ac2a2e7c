// What the supported systems do alike of system.h.
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "os/system.h"

namespace os {

namespace {

/// One text of the system's record of the user that this process runs as, "" when it has none.
std::string ReadUserRecord(char* passwd::*field) {
  char space[16 * 1024];
  passwd record{};
  passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &record, space, sizeof space, &found) != 0 || found == nullptr) {
    return {};
  }
  const char* text = found->*field;
  return text != nullptr ? text : "";
}

}  // namespace

std::uint32_t TickCount() {
  std::timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                    static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000);
}

std::string UserName() { return ReadUserRecord(&passwd::pw_name); }

std::string HomeFolder() {
  const char* given = std::getenv("HOME");
  std::string home = given != nullptr && given[0] == '/' ? given : ReadUserRecord(&passwd::pw_dir);
  while (home.size() > 1 && home.back() == '/') home.pop_back();
  return home;
}

}  // namespace os
