// QVUpdate WORKFOLDER: installs the package that is unpacked in the work folder's cache.
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

#include "environment/configuration.h"
#include "platform/text.h"
#include "updater/launch.h"
#include "updater/running_service.h"
#include "updater/update_lock.h"
#include "updater/updater.h"

namespace {

enum Exit { kInstalled = 0, kOldVersionStays = 1, kUsage = 2, kOtherUpdater = 3 };

constexpr std::chrono::seconds kLockPatience(5);
constexpr int kDefaultPatience = 60;
constexpr int kMostPatience = 3600;

std::chrono::seconds Patience(const update::Places& places) {
  const std::string text =
      GetConfigurationfromInitFile("UpdatePatience", "", DEFAULT_SECTION, places.settings.c_str());
  const int seconds = TextToInt(text.c_str());
  return std::chrono::seconds(seconds >= 1 && seconds <= kMostPatience ? seconds
                                                                       : kDefaultPatience);
}

Exit UpdateService(const update::Places& places) {
  const update::StepsLog log(places.log);
  update::UpdateLock lock;
  switch (lock.Take(places.lock, kLockPatience)) {
    case update::UpdateLock::Taken::Yes:
      break;
    case update::UpdateLock::Taken::NoOtherHasIt:
      log.Say("Another updater is at work. This one ends.");
      return kOtherUpdater;
    case update::UpdateLock::Taken::NoFailed:
      log.Say("There is no lock to be had on " + places.lock + ".");
      return kOldVersionStays;
  }
  try {
    update::FileOperations files;
    update::RunningService service(places, Patience(places));
    return update::Updater(files, service, places, log).Run() ? kInstalled : kOldVersionStays;
  } catch (const std::exception& problem) {
    log.Say(std::string("The update ends early: ") + problem.what());
    return kOldVersionStays;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::error_code error;
  const auto work = std::filesystem::canonical(argc == 2 ? argv[1] : "", error);
  if (error || !std::filesystem::is_directory(work, error)) {
    std::fputs(
        "usage: QVUpdate WORKFOLDER\n"
        "Installs the package unpacked in WORKFOLDER/cache/MarviqueService/ and replaces the\n"
        "service that runs in WORKFOLDER. What it does is told in WORKFOLDER/log/update.log.\n",
        stderr);
    return kUsage;
  }
  const update::Places places = update::PlacesIn(work.string());
  ::mkdir((places.work + "log").c_str(), 0777);
  update::DetachSelf(places.log);
  return UpdateService(places);
}
