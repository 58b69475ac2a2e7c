// What a file read costs when nothing is done with the bytes: the measure for everything that looks
// at a file by contract. And files for that.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "support/temp_folder.h"

/// Opens, stats, reads and closes a small file.
inline void BareRead(const char* path) {
  char bytes[16 * 1024];
  const int file = ::open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (file < 0 || ::fstat(file, &status) != 0 || ::read(file, bytes, sizeof bytes) < 0) ::abort();
  ::close(file);
}

/// Makes the file hold the text and returns when it has been unchanged for some seconds, as
/// settings are nearly always: a file that was changed just now costs a whole read at each look.
inline void SpitAndAge(const std::string& path, const std::string& text) {
  constexpr std::time_t kOld = 5;
  if (Slurp(path) != text) Spit(path, text);
  struct stat status;
  while (::stat(path.c_str(), &status) == 0 && status.st_ctime > std::time(nullptr) - kOld) {
    ::usleep(10'000);
  }
}
