// Characters and texts by the rules of ASCII alone, whatever the locale of the process: what files,
// packets and pages say means the same everywhere.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace ascii {

/// The letters A to Z in lower case, all else as it is.
constexpr char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

inline std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return Lower(c); });
  return lower;
}

constexpr bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

constexpr bool HasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsControl);
}

}  // namespace ascii
