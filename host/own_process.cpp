#include "host/own_process.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <utility>

#include "environment/paths.h"
#include "host/host_log.h"
#include "host/http/upload_file.h"
#include "os/folder.h"
#include "os/process.h"
#include "os/system.h"

namespace host {

namespace {

std::string CurrentFolder() {
  std::error_code ignored;
  return std::filesystem::current_path(ignored).string();
}

/// Of our own environment what a program on a desktop needs. The rest, which may hold secrets, does
/// not belong into a file.
std::vector<std::string> DesktopEnvironment() {
  static constexpr std::array<std::string_view, 8> kNames = {"PATH=",
                                                             "HOME=",
                                                             "USER=",
                                                             "LANG=",
                                                             "DBUS_SESSION_BUS_ADDRESS=",
                                                             "DISPLAY=",
                                                             "WAYLAND_DISPLAY=",
                                                             "TZ="};
  std::vector<std::string> kept = OwnEnvironment();
  std::erase_if(kept, [](std::string_view variable) {
    return !variable.starts_with("LC_") && !variable.starts_with("XDG_") &&
           std::none_of(kNames.begin(), kNames.end(),
                        [variable](auto name) { return variable.starts_with(name); });
  });
  return kept;
}

/// Takes the rights of all other accounts from what an earlier version left open to them. Those of
/// a group are an operator's choice.
void ClosePrivateFiles(const std::string& workFolder) {
  using namespace work_folder;
  for (const char* name : {kSettings, kUserSettings, kLog, kCert, kCache, kUpload}) {
    const std::string path = workFolder + name;
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || S_ISLNK(status.st_mode)) continue;
    const mode_t mode = status.st_mode & 07777;
    if ((mode & S_IRWXO) == 0 || ::chmod(path.c_str(), mode & ~S_IRWXO) == 0) continue;
    ReportWarning("Other accounts may read " + path + ": " + std::strerror(errno) + ".");
  }
}

bool RemoveContent(FolderWalk& folder) {
  bool removed = true;
  while (const char* entry = folder.Next()) {
    if (!folder.IsFolder(entry)) {
      removed = folder.RemoveFile(entry) && removed;
      continue;
    }
    FolderWalk below(folder, entry);
    removed = RemoveContent(below) && below.RemoveSelf() && removed;
  }
  return removed;
}

}  // namespace

bool RunFile::Take(const std::string& file, std::string* why) {
  // An updater that only looks whether a service runs holds it for a moment.
  constexpr std::chrono::seconds kPatience(1);
  const int problem = OpenLocked(file, std::chrono::steady_clock::now() + kPatience, &file_);
  if (problem == 0) return true;
  if (problem != EWOULDBLOCK) {
    ReportError("The run file " + file + " cannot be locked: updates will not find this service.");
    return true;
  }
  const auto other = updater::ReadRunRecord(file);
  *why = "The service runs already in this folder" +
         (other ? ", as process " + std::to_string(other->pid) : std::string()) +
         ", or an update is just replacing it. Two would spoil each other's settings.";
  return false;
}

void RunFile::Write(const updater::RunRecord& record) const {
  if (!file_) return;
  // In place: the lock belongs to this very file. Who reads half of it sees no record and tries
  // again.
  const std::string text = RunRecordText(record);
  if (::pwrite(file_.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
      ::ftruncate(file_.get(), static_cast<off_t>(text.size())) != 0) {
    ReportError(std::string("The run file cannot be written: ") + std::strerror(errno) + ".");
  }
}

OwnProcess::OwnProcess(std::string build, std::vector<std::string> arguments)
    : build_(std::move(build)), updatePaths_(updater::UpdatePathsIn(GetWorkPath())) {
  record_.pid = ::getpid();
  record_.build = build_;
  record_.program = os::ExecutablePath();
  record_.folder = CurrentFolder();
  record_.arguments = std::move(arguments);
  record_.environment = DesktopEnvironment();
}

bool OwnProcess::TakeFolder() {
  if (std::string why; !runFile_.Take(updatePaths_.runRecord, &why)) {
    ReportError(why);
    return false;
  }
  runFile_.Write(record_);
  ClosePrivateFiles(GetWorkPath());
  if (!EndEarlierUpdate(true)) return false;
  // Without the lock another service may run here; none of its uploads takes a day.
  RemoveInterruptedUploads(GetCachePath(),
                           runFile_.IsLocked() ? std::chrono::seconds(0) : std::chrono::hours(24));
  return true;
}

void OwnProcess::TellPorts(int port, int sslPort) {
  record_.port = port;
  record_.sslPort = sslPort;
  record_.serving = port != 0 || sslPort != 0;
  runFile_.Write(record_);
}

void OwnProcess::TellEnd() {
  record_.environment.clear();
  record_.serving = false;
  runFile_.Write(record_);
}

bool OwnProcess::WatchUpdates() {
  using updater::Left;
  // Only what is still left at the second look: an updater may just be about to take its lock.
  const Left before = std::exchange(left_, updater::FindLeft(updatePaths_));
  if (before != left_) return false;
  // Where the start itself could not end it, a further one would not either.
  if (left_ == Left::Programs) return !updateEndFailed_;
  if (left_ == Left::Traces || left_ == Left::LockNotTaken) EndEarlierUpdate(false);
  return false;
}

void OwnProcess::StartAgain() {
  std::vector<std::string> words = {record_.program};
  words.insert(words.end(), record_.arguments.begin(), record_.arguments.end());
  std::fflush(nullptr);
  // Commands may have changed the folder since the start.
  if (::chdir(record_.folder.c_str()) == 0) ::execv(words[0].c_str(), PointersTo(words).data());
  ReportError("The service cannot start itself again: " + std::string(std::strerror(errno)) + ".");
}

/// False when the process should have gone on as another program and could not.
bool OwnProcess::EndEarlierUpdate(bool mayTouchPrograms) {
  using Outcome = updater::Recovery::Outcome;
  const updater::Recovery recovery = updater::RecoverForService(updatePaths_, mayTouchPrograms);
  updateEndFailed_ = recovery.outcome == Outcome::Failed;
  if (updateEndFailed_) {
    ReportError("An update that was cut short cannot be ended: see " + updatePaths_.log + ".");
  } else if (recovery.outcome != Outcome::Nothing) {
    ReportWarning("An update that was cut short has been " +
                  std::string(recovery.outcome == Outcome::Undone ? "taken back." : "finished."));
  }
  // Another process may have exchanged the programs while this one waited for the run file.
  const bool isOld = recovery.changed || (mayTouchPrograms && os::IsExecutableReplaced());
  if (isOld) StartAgain();
  return !isOld;
}

void RemoveInterruptedUploads(const std::string& cacheFolder, std::chrono::seconds untouched) {
  const std::time_t now = std::time(nullptr);
  FolderWalk cache(cacheFolder.c_str());
  while (const char* entry = cache.Next()) {
    const std::string_view name = entry;
    struct stat status {};
    if (!cache.Status(entry, &status)) continue;
    if (untouched.count() > 0 && now - status.st_mtime < untouched.count()) continue;
    bool removed = true;
    if (S_ISREG(status.st_mode) && ((name.starts_with("module_") && name.ends_with(".zip")) ||
                                    name.starts_with(kUploadPrefix))) {
      removed = cache.RemoveFile(entry);
    } else if (S_ISDIR(status.st_mode) &&
               (name.starts_with("Unzip_") || name.starts_with("Update_"))) {
      FolderWalk left(cache, entry);
      removed = RemoveContent(left) && left.RemoveSelf();
    }
    if (!removed) {
      ReportWarning("What an interrupted upload left cannot be removed: " + cacheFolder + entry);
    }
  }
}

}  // namespace host
