// QVUpdate [--allow-downgrade] WORKFOLDER: installs the package that is unpacked in the work
// folder's cache.
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "environment/configuration.h"
#include "os/process.h"
#include "package/update_record.h"
#include "platform/text.h"
#include "updater/service_control.h"
#include "updater/update.h"
#include "updater/update_paths.h"

namespace {

enum Exit { kInstalled = 0, kOldVersionStays = 1, kUsage = 2, kOtherUpdater = 3 };

constexpr std::chrono::seconds kLockPatience(5);
constexpr int kDefaultPatience = 60;
constexpr int kMostPatience = 3600;

std::chrono::seconds Patience(const updater::UpdatePaths& paths) {
  const std::string text =
      GetConfigurationfromInitFile("UpdatePatience", "", DEFAULT_SECTION, paths.settings.c_str());
  const int seconds = TextToInt(text.c_str());
  return std::chrono::seconds(seconds >= 1 && seconds <= kMostPatience ? seconds
                                                                       : kDefaultPatience);
}

Exit UpdateService(const updater::UpdatePaths& paths, bool mayDowngrade) {
  const updater::UpdateLog log(paths.log);
  updater::UpdateLock lock;
  switch (lock.Take(paths.lock, kLockPatience)) {
    case updater::UpdateLock::Taken::Yes:
      break;
    case updater::UpdateLock::Taken::NoOtherHasIt:
      log.Say("Another updater is at work. This one ends.");
      return kOtherUpdater;
    case updater::UpdateLock::Taken::NoFailed: {
      const std::string problem = "There is no lock on " + paths.lock + ".";
      log.Say(problem);
      package::WriteUpdateRecord(paths.record, package::UpdateRecord::State::Refused,
                                 package::ReadUpdateRecord(paths.record).version, problem);
      return kOldVersionStays;
    }
  }
  try {
    updater::FileOperations files;
    updater::RunningService service(paths, Patience(paths));
    return updater::Update(files, service, paths, log).Run(mayDowngrade) ? kInstalled
                                                                         : kOldVersionStays;
  } catch (const std::exception& problem) {
    log.Say(std::string("The update ends early: ") + problem.what());
    return kOldVersionStays;
  }
}

}  // namespace

int main(int argc, char** argv) {
  ::umask(S_IRWXG | S_IRWXO);
  std::error_code error;
  const bool mayDowngrade = argc == 3 && std::string_view(argv[1]) == "--allow-downgrade";
  const auto work =
      std::filesystem::canonical(argc == 2 || mayDowngrade ? argv[argc - 1] : "", error);
  if (error || !std::filesystem::is_directory(work, error)) {
    std::fputs(
        "usage: QVUpdate [--allow-downgrade] WORKFOLDER\n"
        "Installs the package unpacked in WORKFOLDER/cache/MarviqueService/ and replaces the\n"
        "service that runs in WORKFOLDER. What it does is told in WORKFOLDER/log/update.log.\n"
        "A version below the installed one is refused without --allow-downgrade.\n",
        stderr);
    return kUsage;
  }
  const updater::UpdatePaths paths = updater::UpdatePathsIn(work.string());
  ::mkdir((paths.work + "log").c_str(), 0777);
  os::DetachThisProcess(paths.log);
  return UpdateService(paths, mayDowngrade);
}
