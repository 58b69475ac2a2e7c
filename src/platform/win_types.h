// The plain Win32-style types and constants that the platform layer's interface is written in.
#pragma once

#include <cstdint>

/// True or false as 1 or 0, the result of most operations of the platform layer.
using BOOL = std::int32_t;
using DWORD = std::uint32_t;

/// Results of the waits on events and of the waits that mirror them.
inline constexpr int WAIT_OBJECT_0 = 0;
inline constexpr int WAIT_TIMEOUT = 258;
inline constexpr int WAIT_FAILED = -1;

/// The time-out, in milliseconds, that means "wait without limit".
inline constexpr unsigned int INFINITE = 0x7FFFFFFF;

/// Broken-down time. `wDayOfWeek` is always 0: nothing reads it.
struct _SYSTEMTIME {
  std::uint16_t wYear;
  std::uint16_t wMonth;  ///< 1 to 12
  std::uint16_t wDayOfWeek;
  std::uint16_t wDay;  ///< 1 to 31
  std::uint16_t wHour;
  std::uint16_t wMinute;
  std::uint16_t wSecond;
  std::uint16_t wMilliseconds;
};

struct _FILETIME {
  std::uint32_t dwLowDateTime;
  std::uint32_t dwHighDateTime;
};
