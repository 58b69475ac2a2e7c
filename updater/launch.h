// Starting a program that outlives its starter.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace update {

struct LaunchOrder {
  std::string program;
  std::string folder;
  std::vector<std::string> arguments;
  std::string output;  ///< a file for what it prints, begun anew
};

/// Starts it in a session of its own, with the signals as a fresh program has them and no
/// descriptor but the standard ones. It gets the caller's environment, and what the caller itself
/// was not given: a search path, the user's name and home. Returns 0 or an errno.
int LaunchDetached(const LaunchOrder& order, pid_t& child);

/// Makes the calling process such a one: a session of its own if possible, no signal held back or
/// ignored but those of terminals and closed pipes, no foreign descriptor, nothing to read, and
/// what it prints added to the file.
void DetachSelf(const std::string& output);

}  // namespace update
