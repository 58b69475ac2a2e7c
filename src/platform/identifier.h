// Names that nobody has given yet.
#pragma once

#include <array>

inline constexpr std::size_t kIdentifierLength = 32;

/// 32 lower-case hexadecimal digits of 16 random bytes, and a NUL. Where the system gives no random
/// bytes they are made of clock, process and a counter: unique all the same, but no secret.
std::array<char, kIdentifierLength + 1> MakeIdentifier();
