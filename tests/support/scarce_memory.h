// Memory that runs out when a test wants it to. For one file of a test program: it replaces the
// operators new and delete of the whole program.
#pragma once

#include <cstdlib>
#include <new>

/// How many more requests of this thread succeed; negative for all.
inline thread_local int g_requestsLeft = -1;

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (g_requestsLeft == 0) return nullptr;
  if (g_requestsLeft > 0) --g_requestsLeft;
  return std::malloc(size > 0 ? size : 1);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (void* block = operator new(size, std::nothrow)) return block;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }

/// Runs the call with no memory, then with one request granted, and so on until it succeeds. Tells
/// how often it failed, -1 if anything was thrown.
template <class Call>
int FailuresOf(Call call) {
  for (int granted = 0; granted < 10'000; ++granted) {
    bool good = false;
    g_requestsLeft = granted;
    try {
      good = call();
    } catch (...) {
      g_requestsLeft = -1;
      return -1;
    }
    g_requestsLeft = -1;
    if (good) return granted;
  }
  return -2;
}
