// Profile strings: one value of an INI file, read or written with the file's other content kept.
//
// Every read looks at the file (see profile_view.h) and every write rewrites it. Any thread may
// read. Writers, of all threads and processes, take turns by a ProfileLock. No call throws.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "os/file.h"
#include "platform/win_types.h"

/// Copies the value of `key` in `section`, or `defaultValue` when the file, the section or the key
/// is missing, into `buffer` (at most size - 2 characters and a NUL). Returns the full length of
/// the value.
DWORD GetPrivateProfileStringA(const char* section, const char* key, const char* defaultValue,
                               char* buffer, DWORD size, const char* file);

struct ProfileEntry {
  std::string_view key;
  std::string_view value;
};

/// The turn of a writer of a settings file: a lock on a file beside it, ".<name>.lock", which stays
/// and which only its owner may open. Nobody but the service's own account and root can keep it, so
/// nobody else is waited for; and no holder for more than some seconds: then the writer goes on
/// without, which can lose another writer's change made in the same moment but leaves the file
/// whole. So it is where the file system has no locks, or the folder is not ours to write.
class ProfileLock {
 public:
  /// Waits for the turn. `file` may be null: there is nothing to wait for.
  explicit ProfileLock(const char* file);

 private:
  Descriptor held_;
};

/// Stores a value, creating file, section and key as needed. CR, LF and NUL are dropped from all
/// three texts, so that no text can pose as a line of its own. A byte order mark stays. Returns 1;
/// 0 with errno set when the file could not be loaded or written, and then its old content is
/// untouched. The file is replaced whole, but written over in its place where its folder may not be
/// written: a reader may then see a part for a moment.
BOOL WritePrivateProfileStringA(const char* section, const char* key, const char* value,
                                const char* file);
/// Stores several values of one section with a single rewrite of the file: all of them or none.
BOOL WritePrivateProfileEntries(const char* section, std::span<const ProfileEntry> entries,
                                const char* file);

/// A stored value by its key, "" when there is none.
using ProfileReader = std::function<std::string(std::string_view key)>;
/// Keys and the values that they get.
using ProfileTexts = std::vector<std::pair<std::string, std::string>>;

/// Makes of a section's values those that are to be stored; none: nothing is written. It must not
/// write settings itself.
using ProfileChange = std::function<ProfileTexts(const ProfileReader&)>;

/// Reads a section and stores what `change` makes of it, in the writer's turn. Returns as
/// WritePrivateProfileEntries.
BOOL ChangePrivateProfile(const char* section, const ProfileChange& change, const char* file);
/// The same for a caller that has the turn.
BOOL ChangePrivateProfile(const char* section, const ProfileChange& change, const char* file,
                          const ProfileLock& turn);
