#include "updater/steps_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "platform/ascii.h"
#include "platform/descriptor.h"

namespace update {

void StepsLog::Say(const std::string& sentence) const {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 64> stamp{};
  std::strftime(stamp.data(), stamp.size(), "%Y-%m-%d %H:%M:%S", &local);
  std::string line =
      std::string(stamp.data()) + " [" + std::to_string(::getpid()) + "] " + sentence;
  for (char& c : line) {
    if (ascii::IsControl(c)) c = '?';
  }
  line += '\n';
  const Descriptor file(
      ::open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644));
  if (file && ::write(file.get(), line.data(), line.size()) < 0) {
    std::perror(file_.c_str());
  }
}

}  // namespace update
