#include "platform/folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/folder_walk.h"
#include "platform/ini_file.h"
#include "platform/os.h"
#include "platform/system_time.h"

namespace {

constexpr mode_t kFolderMode = 0777;
constexpr std::size_t kMaxPath = 1023;

/// The rules of RemoveDir.
bool Remove(FolderWalk folder) {
  if (!folder) return false;
  while (const char* entry = folder.Next()) {
    if (folder.IsFolder(entry)) {
      if (Remove(FolderWalk(folder, entry))) return true;  // the early end that callers know
    } else if (!folder.RemoveFile(entry)) {
      return false;
    }
  }
  return folder.RemoveSelf();
}

bool LastChangedOnEarlierDay(const _SYSTEMTIME& changed, const _SYSTEMTIME& today) {
  if (today.wYear != changed.wYear) return today.wYear > changed.wYear;
  if (today.wMonth != changed.wMonth) return today.wMonth > changed.wMonth;
  return today.wDay - changed.wDay >= 2;
}

}  // namespace

BOOL CreateDirectory(const char* path, void*) { return ::mkdir(path, kFolderMode) == 0; }

BOOL RemoveDir(const char* path) {
  if (path == nullptr) return 0;
  std::string folder = path;
  RTrim(folder, "/");  // "/" itself becomes "", which is no folder
  return Remove(FolderWalk(folder.c_str()));
}

bool RemoveUndeletedDir(const char* path) {
  if (path == nullptr) return false;
  std::string parent = std::string(path).substr(0, kMaxPath);
  RTrim(parent, "/");
  const std::size_t slash = parent.rfind('/');
  if (slash == parent.npos) return false;
  parent.resize(slash);

  _SYSTEMTIME today{};
  GetSystemTime(&today);
  FolderWalk folder(parent.c_str());
  while (const char* entry = folder.Next()) {
    struct stat status {};
    if (!folder.Status(entry, &status) || !S_ISDIR(status.st_mode)) continue;
    const std::time_t seconds = os::ModificationTime(status).tv_sec;
    if (seconds == 0) continue;
    _SYSTEMTIME changed{};
    ConvertTimeToSystemTime(&changed, seconds);
    if (LastChangedOnEarlierDay(changed, today)) Remove(FolderWalk(folder, entry));
  }
  return true;
}

void DeleteFileOrDir(const char* path) {
  struct stat status {};
  if (path == nullptr || ::lstat(path, &status) != 0) return;
  if (S_ISDIR(status.st_mode)) {
    RemoveDir(path);
    RemoveUndeletedDir(path);
  } else {
    ::unlink(path);
  }
}
