// Starting a program that outlives its starter.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace updater {

struct LaunchOrder {
  std::string program;
  std::string folder;
  std::vector<std::string> arguments;
  std::vector<std::string> environment;  ///< empty: a plain one
  std::string output;                    ///< a file to which it adds what it prints
};

/// Starts it in a session of its own, with the signals as a fresh program has them and of the
/// caller's descriptors those that are not close-on-exec. A plain environment is the caller's, and
/// what the caller itself was not given: a search path, the user's name and home. Returns 0 or an
/// errno.
int LaunchDetached(const LaunchOrder& order, pid_t& child);

/// Makes the calling process such a one: a session of its own if possible, no signal held back or
/// ignored but those of terminals and closed pipes, no foreign descriptor, nothing to read, and
/// what it prints added to the file.
void DetachSelf(const std::string& output);

}  // namespace updater
