// What a file read costs when nothing is done with the bytes: the measure for everything that reads
// a file by contract.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

/// Opens, stats, reads and closes a small file.
inline void BareRead(const char* path) {
  char bytes[16 * 1024];
  const int file = ::open(path, O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (file < 0 || ::fstat(file, &status) != 0 || ::read(file, bytes, sizeof bytes) < 0) ::abort();
  ::close(file);
}
