// What an update does to files. Each call is one step, which is done whole or not at all also when
// the machine stops, except where told. An interface, so that a test can cut an update off at each.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>
#include <string_view>

#include "platform/profile.h"

namespace updater {

/// The calls return 0 or an errno. One thread at a time.
class FileOperations {
 public:
  virtual ~FileOperations() = default;

  virtual int MakeFolder(const std::string& path);
  /// Removes a folder with all that is in it, not following links. Cut off, it leaves a part. Fine
  /// when there is none.
  virtual int RemoveTree(const std::string& path);
  /// Copies a regular file (a link is refused) to a free name and flushes it to the disk. Cut off,
  /// it leaves a part. Tells the SHA-256 of the bytes written, in lower case.
  virtual int Copy(const std::string& from, const std::string& to, mode_t mode,
                   std::string* sha256);
  /// Gives a file a second name.
  virtual int Link(const std::string& from, const std::string& to);
  /// Moves a file over another, which is there at every moment, old or new.
  virtual int Rename(const std::string& from, const std::string& to);
  virtual int Remove(const std::string& path);
  /// Flushes a folder's list of names to the disk.
  virtual int SyncFolder(const std::string& path);
  /// Replaces a file's content and flushes it.
  virtual int Write(const std::string& path, std::string_view content);
  /// Stores settings of the main section, in one step.
  virtual int StoreSettings(const std::string& file, std::span<const ProfileEntry> entries);
};

}  // namespace updater
