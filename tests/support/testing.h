// What nearly every test uses: googletest, folders of its own, threads and time, and tables of
// cases.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/temp_folder.h"

namespace fs = std::filesystem;

/// Rows of cases, whose columns are named where they are walked:
///   for (const auto& [text, valid] : Table<std::string, bool>{{"a", true}, {"", false}}) ...
template <class... Columns>
using Table = std::vector<std::tuple<Columns...>>;

inline std::string Times(int count, std::string_view text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

/// Looks every few milliseconds until the condition holds, for 20 seconds at most. Returns whether
/// it came to hold.
bool WaitUntil(auto condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}
