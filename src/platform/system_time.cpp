#include "platform/system_time.h"

#include <cerrno>

#include "os/system.h"

namespace {

// The second that this thread asked for last. Log lines ask for the same one many times over, and
// breaking it down takes longer than all the rest of a time stamp.
struct LocalSecond {
  bool known;
  std::time_t seconds;
  std::tm local;
};
thread_local constinit LocalSecond t_last{};

void StoreLocalTime(std::time_t seconds, _SYSTEMTIME* systemTime) {
  if (!t_last.known || t_last.seconds != seconds) {
    ::tzset();  // localtime_r alone would keep the zone that it met first
    t_last.known = ::localtime_r(&seconds, &t_last.local) != nullptr;
    t_last.seconds = seconds;
    if (!t_last.known) t_last.local = {};
  }
  const std::tm& local = t_last.local;
  systemTime->wYear = static_cast<std::uint16_t>(local.tm_year + 1900);
  systemTime->wMonth = static_cast<std::uint16_t>(local.tm_mon + 1);
  systemTime->wDayOfWeek = 0;
  systemTime->wDay = static_cast<std::uint16_t>(local.tm_mday);
  systemTime->wHour = static_cast<std::uint16_t>(local.tm_hour);
  systemTime->wMinute = static_cast<std::uint16_t>(local.tm_min);
  systemTime->wSecond = static_cast<std::uint16_t>(local.tm_sec);
}

}  // namespace

DWORD GetTickCount() { return os::TickCount(); }

void Sleep(DWORD milliseconds) {
  std::timespec left{static_cast<std::time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1'000'000};
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

BOOL GetSystemTime(_SYSTEMTIME* systemTime) {
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  StoreLocalTime(now.tv_sec, systemTime);
  systemTime->wMilliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1'000'000);
  return 1;
}

void ConvertTimeToSystemTime(_SYSTEMTIME* systemTime, std::time_t seconds) {
  StoreLocalTime(seconds, systemTime);
}

int GetLastError() { return errno; }
