// A folder as an open descriptor: what is in it is looked at and removed through that descriptor,
// so that nobody who swaps a folder for a link in between can lead a removal out of its tree.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <memory>

/// One pass over a folder's entries. It keeps pointers to the name and to the walk above that it
/// was made with: both must outlive it. One thread at a time.
class FolderWalk {
 public:
  /// Opens the folder of that path; a link to a folder is followed.
  explicit FolderWalk(const char* path);
  /// Opens an entry of `above`; a link is refused.
  FolderWalk(const FolderWalk& above, const char* name);

  /// Whether the folder could be opened. If not, errno tells why, and the walk has no entries.
  explicit operator bool() const { return folder_ != nullptr; }

  /// The next entry's name, "." and ".." left out; null at the end. It holds until the next call.
  const char* Next();
  /// The entry's own status, for a link that of the link. False with errno set on failure.
  bool Status(const char* entry, struct stat* status) const;
  /// Whether the entry is a folder; a link to one is none.
  bool IsFolder(const char* entry) const;
  /// Removes an entry that is no folder. False with errno set on failure.
  bool RemoveFile(const char* entry) const;
  /// Removes the folder itself if it is empty and no link, also one that could not be opened.
  bool RemoveSelf() const;

 private:
  struct Close {
    void operator()(DIR* folder) const;
  };

  FolderWalk(int above, const char* name, int flags);
  int descriptor() const { return ::dirfd(folder_.get()); }

  int above_;
  const char* name_;
  std::unique_ptr<DIR, Close> folder_;
};
