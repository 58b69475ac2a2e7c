#include "os/folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "os/file.h"

void FolderWalk::Close::operator()(DIR* folder) const {
  const int saved = errno;
  ::closedir(folder);
  errno = saved;
}

FolderWalk::FolderWalk(int above, const char* name, int flags) : above_(above), name_(name) {
  Descriptor descriptor(::openat(above, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
  if (descriptor) folder_.reset(::fdopendir(descriptor.get()));
  if (folder_) descriptor.Release();
}

FolderWalk::FolderWalk(const char* path) : FolderWalk(AT_FDCWD, path, 0) {}

FolderWalk::FolderWalk(const FolderWalk& above, const char* name)
    : FolderWalk(above.descriptor(), name, O_NOFOLLOW) {}

const char* FolderWalk::Next() {
  while (const dirent* entry = folder_ ? ::readdir(folder_.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return entry->d_name;
  }
  return nullptr;
}

bool FolderWalk::Status(const char* entry, struct stat* status) const {
  return ::fstatat(descriptor(), entry, status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool FolderWalk::IsFolder(const char* entry) const {
  struct stat status {};
  return Status(entry, &status) && S_ISDIR(status.st_mode);
}

bool FolderWalk::RemoveFile(const char* entry) const {
  return ::unlinkat(descriptor(), entry, 0) == 0;
}

bool FolderWalk::RemoveSelf() const { return ::unlinkat(above_, name_, AT_REMOVEDIR) == 0; }
