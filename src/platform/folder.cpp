#include "platform/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/descriptor.h"
#include "platform/os.h"
#include "platform/system_time.h"

namespace {

constexpr mode_t kFolderMode = 0777;
constexpr std::size_t kMaxPath = 1023;

struct FolderCloser {
  void operator()(DIR* folder) const {
    const int saved = errno;
    ::closedir(folder);
    errno = saved;
  }
};
using Folder = std::unique_ptr<DIR, FolderCloser>;

Folder OpenFolder(int parent, const char* name) {
  Descriptor descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  Folder folder(descriptor ? ::fdopendir(descriptor.get()) : nullptr);
  if (folder) descriptor.Release();
  return folder;
}

/// The next entry's name, "." and ".." left out; null at the end.
const char* NextEntry(DIR* folder) {
  while (const dirent* entry = ::readdir(folder)) {
    const char* name = entry->d_name;
    if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) return name;
  }
  return nullptr;
}

bool IsKind(int parent, const char* name, mode_t kind, struct stat* status) {
  return ::fstatat(parent, name, status, AT_SYMLINK_NOFOLLOW) == 0 &&
         (status->st_mode & S_IFMT) == kind;
}

/// The rules of RemoveDir for a folder below an open one. Working from descriptors, so that nobody
/// who swaps a folder for a link meanwhile can lead the removal out of the tree.
bool RemoveFolder(int parent, const char* name) {
  const Folder folder = OpenFolder(parent, name);
  if (!folder) {
    struct stat status {};
    return IsKind(parent, name, S_IFLNK, &status) && ::unlinkat(parent, name, 0) == 0;
  }
  const int self = ::dirfd(folder.get());
  while (const char* entry = NextEntry(folder.get())) {
    struct stat status {};
    if (IsKind(self, entry, S_IFDIR, &status)) {
      if (RemoveFolder(self, entry)) return true;  // the early end that callers know
    } else if (::unlinkat(self, entry, 0) != 0) {
      return false;
    }
  }
  return ::unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

std::string WithoutTrailingSlashes(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
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
  // A slash at the end would make the system follow a link.
  return RemoveFolder(AT_FDCWD, WithoutTrailingSlashes(path).c_str());
}

bool RemoveUndeletedDir(const char* path) {
  if (path == nullptr) return false;
  std::string parent = WithoutTrailingSlashes(std::string(path).substr(0, kMaxPath));
  const std::size_t slash = parent.rfind('/');
  if (slash == parent.npos) return false;
  parent.resize(slash);

  _SYSTEMTIME today{};
  GetSystemTime(&today);
  const Descriptor folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const Folder entries(folder ? ::fdopendir(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0)) : nullptr);
  if (!entries) return true;
  while (const char* entry = NextEntry(entries.get())) {
    struct stat status {};
    if (!IsKind(folder.get(), entry, S_IFDIR, &status)) continue;
    const std::time_t seconds = os::ModificationTime(status).tv_sec;
    if (seconds == 0) continue;
    _SYSTEMTIME changed{};
    ConvertTimeToSystemTime(&changed, seconds);
    if (LastChangedOnEarlierDay(changed, today)) RemoveFolder(folder.get(), entry);
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
