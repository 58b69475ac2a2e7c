// What tests ask the system about their own process, with one body per system
// (machine_linux.cpp, machine_macos.cpp).
#pragma once

#include <cstddef>
#include <string>

/// Full path of the running program.
std::string OwnProgram();
/// How many descriptors are open and how many threads live in this process, and how many names
/// semaphores of this machine have: 0 where the system lists none.
std::size_t OpenDescriptors();
std::size_t LiveThreads();
std::size_t SemaphoreNames();
/// Whether a library is in this process's memory whose path ends with that.
bool IsLoaded(const std::string& file);
