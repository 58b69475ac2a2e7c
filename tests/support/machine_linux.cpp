#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/machine.h"

namespace {

std::size_t EntriesOf(const char* folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

std::string OwnProgram() { return std::filesystem::canonical("/proc/self/exe"); }
std::size_t OpenDescriptors() { return EntriesOf("/proc/self/fd"); }
std::size_t LiveThreads() { return EntriesOf("/proc/self/task"); }
std::size_t SemaphoreNames() { return EntriesOf("/dev/shm"); }

bool IsLoaded(const std::string& file) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line)) {
    if (line.ends_with(file)) return true;
  }
  return false;
}
