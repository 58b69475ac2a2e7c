// Characters and texts by the rules of ASCII alone, whatever the locale of the process: what files,
// packets and pages say means the same everywhere. And names that nobody has given yet.
#pragma once

#include <algorithm>
#include <array>
#include <span>
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

/// Two lower-case hexadecimal digits for each byte.
inline std::string Hex(std::span<const unsigned char> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace ascii

/// Whether `matches` holds for an entry of a comma-separated list. Blanks around an entry do not
/// count, and nothing between two commas is no entry.
template <class Matches>
bool AnyEntry(std::string_view list, Matches matches) {
  while (!list.empty()) {
    const auto comma = std::min(list.find(','), list.size());
    std::string_view entry = list.substr(0, comma);
    list.remove_prefix(std::min(comma + 1, list.size()));
    const auto begin = entry.find_first_not_of(" \t");
    if (begin == entry.npos) continue;
    entry = entry.substr(begin, entry.find_last_not_of(" \t") - begin + 1);
    if (matches(entry)) return true;
  }
  return false;
}

inline constexpr std::size_t kIdentifierLength = 32;

/// 32 lower-case hexadecimal digits of 16 random bytes, and a NUL. Where the system gives no random
/// bytes they are made of clock, process and a counter: unique all the same, but no secret.
std::array<char, kIdentifierLength + 1> MakeIdentifier();
