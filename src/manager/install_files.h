// Bringing unpacked files to their place.
#pragma once

#include <string>

/// Copies the files of a folder and of its subfolders into another, making folders as needed; each
/// file that is there is replaced in one step, or stays whole. Empty files are moved. Returns true
/// when every file has arrived; otherwise false, with errno set, and some may have.
bool InstallFiles(const std::string& from, const std::string& to);
