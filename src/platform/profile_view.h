// One look at a settings file.
//
// Every look asks the file system for the file's state. If it is the state in which the file was
// read last, what was read then is what the file holds, and nothing is read again. A read is kept
// for that only if it began at least three seconds after the file's last change: two changes may
// share a tick of a file system's clock, which can be as coarse as two seconds, so a younger file
// is read at every look. Other processes may change the file at any time and in any way: a look
// never tells less than the last change that was complete when it began.
#pragma once

#include <string_view>

#include "os/file.h"

class ProfileSnapshot;

/// What a settings file holds at one moment: several values found in one view belong together. For
/// one thread, and for a short time. Any number of threads may look at once; none waits for
/// another. Allocates nothing for files of up to 16 KiB, and never throws.
class ProfileView {
 public:
  /// Looks. A file that is missing or cannot be read has no values; so has null.
  explicit ProfileView(const char* file);
  ~ProfileView();
  ProfileView(const ProfileView&) = delete;
  ProfileView& operator=(const ProfileView&) = delete;

  /// The value that a model of the whole file would hold, or `absent` when the section or the key
  /// is missing. The text lies in the view.
  std::string_view Find(std::string_view section, std::string_view key,
                        std::string_view absent) const;

 private:
  FileView content_;
  const ProfileSnapshot* snapshot_ = nullptr;  // shared until the end; it answers if there is one
};
