// What differs between operating systems, and nothing else. Each system has one body of this page
// (os_linux.cpp, os_macos.cpp); the build picks it. A port to a further system fulfils every line.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

struct stat;

namespace os {

/// Full path of the running executable, "" when the system does not tell.
std::string ExecutablePath();
/// A number that no other live thread of this process has, the same for the thread's whole life.
/// Cheap enough to be asked on every lock.
std::uint32_t ThreadNumber();
/// Milliseconds of a clock that never goes back, wrapping in 32 bits.
std::uint32_t TickCount();
/// The process's physical footprint in bytes, 0 when unknown.
std::uint64_t PhysicalFootprint();
/// Name and home folder (no trailing "/") of the user this process runs as, "" when unknown.
std::string UserName();
std::string HomeFolder();
/// The current environment, for starting programs.
char** Environment();
/// Makes a file's written bytes reach the disk. Returns 0 or an errno.
int FlushToDisk(int descriptor);
/// The modification time in a file's status.
std::timespec ModificationTime(const struct stat& status);

}  // namespace os
