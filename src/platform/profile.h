// Profile strings: one value of an INI file, read or written with the file's other content kept.
//
// Every read looks at the file (see profile_view.h) and every write rewrites it. Any thread may
// read; the callers order the threads that write (the configuration lock does for the service's own
// files). Writers of several processes and of several copies of this layer in one process take
// turns by a lock on the file's folder. A stranger may hold such a lock too, so a write waits about
// five seconds at most, then it fails.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

/// Stores a value, creating file, section and key as needed. CR, LF and NUL are dropped from all
/// three texts, so that no text can pose as a line of its own. Returns 1; 0 with errno set when
/// the file could not be loaded or replaced (EWOULDBLOCK: another holder kept the folder locked),
/// and then its old content is untouched. The file's folder must be writable.
BOOL WritePrivateProfileStringA(const char* section, const char* key, const char* value,
                                const char* file);
/// Stores several values of one section with a single rewrite of the file: all of them or none.
BOOL WritePrivateProfileEntries(const char* section, std::span<const ProfileEntry> entries,
                                const char* file);

/// A stored value by its key, "" when there is none.
using ProfileReader = std::function<std::string(std::string_view key)>;
/// Keys and the values that they get.
using ProfileTexts = std::vector<std::pair<std::string, std::string>>;

/// Reads a section and stores what `change` makes of it, while no other writer has its turn. No
/// texts: nothing is written. Returns as WritePrivateProfileEntries.
BOOL ChangePrivateProfile(const char* section,
                          const std::function<ProfileTexts(const ProfileReader&)>& change,
                          const char* file);
