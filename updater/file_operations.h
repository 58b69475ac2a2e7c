// What an update does to files, one call a step that the disk has done whole or not at all, except
// where told. An interface, so that a test can cut an update off at any of them.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>
#include <string_view>

#include "platform/profile.h"

namespace update {

/// The calls return 0 or an errno. One thread at a time.
class FileOperations {
 public:
  virtual ~FileOperations() = default;

  virtual int MakeFolder(const std::string& path);
  /// Removes a folder with all that is in it, links as links; cut off, it leaves a part. Nothing
  /// there is fine.
  virtual int RemoveTree(const std::string& path);
  /// Copies a regular file (a link is refused) to a name that is free and flushes it to the disk;
  /// cut off, it leaves a part. Tells the SHA-256 of the bytes that it wrote, in lower case.
  virtual int Copy(const std::string& from, const std::string& to, mode_t mode,
                   std::string* sha256);
  /// Gives a file a second name.
  virtual int Link(const std::string& from, const std::string& to);
  /// Moves a file over another, which is there with its old or its new content at every moment.
  virtual int Rename(const std::string& from, const std::string& to);
  virtual int Remove(const std::string& path);
  /// Flushes what changed in a folder's list of names.
  virtual int SyncFolder(const std::string& path);
  /// Replaces a file's content and flushes it.
  virtual int Write(const std::string& path, std::string_view content);
  /// Stores settings of the main section, in one step.
  virtual int StoreSettings(const std::string& file, std::span<const ProfileEntry> entries);
};

}  // namespace update
