// Clocks, sleeping and the error code of the calling thread.
#pragma once

#include <ctime>

#include "platform/win_types.h"

/// Milliseconds of a clock that never goes back, wrapping in 32 bits.
DWORD GetTickCount();
void Sleep(DWORD milliseconds);
/// The local time (not UTC) with milliseconds. Returns 1.
BOOL GetSystemTime(_SYSTEMTIME* systemTime);
/// The local time of the given seconds since the epoch; the milliseconds are left untouched.
void ConvertTimeToSystemTime(_SYSTEMTIME* systemTime, std::time_t seconds);
/// The calling thread's errno.
int GetLastError();
