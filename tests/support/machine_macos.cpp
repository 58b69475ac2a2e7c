#include <mach-o/dyld.h>
#include <mach/mach.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <iterator>

#include "support/machine.h"

std::string OwnProgram() {
  std::array<char, 4096> path{};
  std::uint32_t size = path.size();
  if (::_NSGetExecutablePath(path.data(), &size) != 0) return "";
  return std::filesystem::canonical(path.data());
}

std::size_t OpenDescriptors() {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator("/dev/fd"), {}));
}

std::size_t LiveThreads() {
  thread_act_array_t threads = nullptr;
  mach_msg_type_number_t count = 0;
  if (::task_threads(::mach_task_self(), &threads, &count) != KERN_SUCCESS) return 0;
  for (mach_msg_type_number_t i = 0; i < count; ++i) {
    ::mach_port_deallocate(::mach_task_self(), threads[i]);
  }
  ::vm_deallocate(::mach_task_self(), reinterpret_cast<vm_address_t>(threads),
                  count * sizeof(*threads));
  return count;
}

std::size_t SemaphoreNames() { return 0; }

bool IsLoaded(const std::string& file) {
  for (std::uint32_t i = 0; i < ::_dyld_image_count(); ++i) {
    const char* name = ::_dyld_get_image_name(i);
    if (name != nullptr && std::string(name).ends_with(file)) return true;
  }
  return false;
}
