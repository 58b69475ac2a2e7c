// The files of an unpacked upload, on their way to the module's folder: which of them may go there,
// and the copying.
#pragma once

#include <string>

/// What the files of an upload may become.
enum class Fitness {
  Refused,
  Data,      ///< files that nobody may execute
  Anything,  ///< programs, too
};

/// What everything in a folder may become in another, where the service lives. Refused is what
/// would land on the service's own state or the operator's settings, wherever the two folders and
/// the work folder lie. Where update keys are required, programs, libraries and files that would
/// replace others are refused, too, unless the folder has a signed manifest of all its files; that
/// and its signature are then removed from the folder, since they are not to be copied. `why` tells
/// the reason of a refusal. Folders end in "/".
Fitness FitnessOf(const std::string& from, const std::string& to, std::string* why);

/// Copies the files of a folder and of its subfolders into another, making folders as needed; each
/// file that is there is replaced in one step, or stays whole. Ends at the first that cannot be
/// copied: false, with errno set, and some may have arrived. (CUtil::CopyDirectoryFiles copies the
/// same, but its result is that of the last file alone.)
bool InstallFiles(const std::string& from, const std::string& to, Fitness fitness);
