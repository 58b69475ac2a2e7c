#include "updater/update_paths.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "environment/paths.h"
#include "os/file.h"
#include "os/text.h"

namespace updater {

UpdatePaths UpdatePathsIn(std::string work) {
  if (!work.ends_with('/')) work += '/';
  const ProgramPaths program = PathsBelow(work);
  UpdatePaths paths;
  paths.settings = program.config;
  paths.package = program.cache + PACKAGE_FOLDER + "/";
  paths.lock = program.cache + "update.lock";
  paths.log = program.log + "update.log";
  paths.serviceOutput = program.log + "service_output.log";
  paths.record = work + work_folder::kUpdateRecord;
  paths.runRecord = work + work_folder::kRunRecord;
  paths.update = work + work_folder::kUpdate + "/";
  paths.staging = paths.update + "new/";
  paths.backup = paths.update + "old/";
  paths.journal = paths.update + "journal";
  paths.work = std::move(work);
  return paths;
}

UpdateLock::Taken UpdateLock::Take(const std::string& file, std::chrono::milliseconds patience) {
  const int error = OpenLocked(file, std::chrono::steady_clock::now() + patience, &held_);
  if (error == EWOULDBLOCK) return Taken::NoOtherHasIt;
  return error == 0 ? Taken::Yes : Taken::NoFailed;
}

void UpdateLog::Say(const std::string& sentence) const {
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

}  // namespace updater
