#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/file_content.h"
#include "platform/os.h"
#include "platform/user_record.h"

namespace os {

std::string ExecutablePath() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return {};
  std::string result(path, static_cast<std::size_t>(length));
  // The system marks a file that an update has replaced under the running program.
  constexpr std::string_view kReplaced = " (deleted)";
  if (result.ends_with(kReplaced) && ::access(result.c_str(), F_OK) != 0) {
    result.resize(result.size() - kReplaced.size());
  }
  return result;
}

std::uint32_t ThreadNumber() {
  static thread_local std::uint32_t number = 0;
  if (number == 0) number = static_cast<std::uint32_t>(::gettid());
  return number;
}

std::uint32_t TickCount() {
  std::timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                    static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000);
}

std::uint64_t PhysicalFootprint() {
  std::string text;
  unsigned long long total = 0;
  unsigned long long resident = 0;
  if (ReadWholeFile("/proc/self/statm", &text) != 0 ||
      std::sscanf(text.c_str(), "%llu %llu", &total, &resident) != 2) {
    return 0;
  }
  return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::string UserName() { return ReadUserRecord(&passwd::pw_name); }

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  const bool given = home != nullptr && home[0] == '/';
  return WithoutTrailingSlash(given ? home : ReadUserRecord(&passwd::pw_dir));
}

char** Environment() { return ::environ; }

int FlushToDisk(int descriptor) { return ::fdatasync(descriptor) == 0 ? 0 : errno; }

std::timespec ModificationTime(const struct stat& status) { return status.st_mtim; }

}  // namespace os
