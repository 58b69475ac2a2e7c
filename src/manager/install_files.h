// Bringing unpacked files to their place.
#pragma once

#include <string>

/// Copies the files of a folder and of its subfolders into another, making folders as needed; each
/// file that is there is replaced in one step, or stays whole. Returns true when every file has
/// arrived. Ends at the first that cannot: false, with errno set, and some may have arrived.
/// (CUtil::CopyDirectoryFiles copies the same, but its result is that of the last file alone, and
/// an empty one or one that cannot be opened counts for it the wrong way round.)
bool InstallFiles(const std::string& from, const std::string& to);
