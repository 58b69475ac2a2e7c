#include <cstdarg>
#include <cstdlib>

#include "platform/system_time.h"
#include "platform/text.h"
#include "support/testing.h"

namespace {

__attribute__((format(printf, 1, 2))) int Length(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = _vscprintf(format, arguments);
  EXPECT_EQ(_vscprintf(format, arguments), length) << "the arguments were used up";
  va_end(arguments);
  return length;
}

std::string Shown(const _SYSTEMTIME& time) {
  char text[64];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d/%d", time.wYear, time.wMonth,
                time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds,
                time.wDayOfWeek);
  return text;
}

std::string ClockNow() {
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  _SYSTEMTIME time{};
  ConvertTimeToSystemTime(&time, now.tv_sec);
  time.wMilliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1'000'000);
  return Shown(time);
}

}  // namespace

TEST(Text, CopiesWhatFits) {
  using namespace std::string_literals;
  for (const auto& [source, size, target] :
       Table<const char*, std::size_t, std::string>{{"abc", 0, "........"s},
                                                    {"abc", 1, "\0......."s},
                                                    {"abc", 3, "ab\0....."s},
                                                    {"abc", 4, "abc\0...."s},
                                                    {"abc", 6, "abc\0.\0.."s},
                                                    {"", 8, "\0......\0"s}}) {
    std::string copies[3] = {"........", "........", "........"};
    const auto bytes = [](std::string& text) {
      return reinterpret_cast<unsigned char*>(text.data());
    };
    EXPECT_EQ(lstrcpyn(copies[0].data(), source, size), copies[0].data());
    lstrcpyn(bytes(copies[1]), source, size);
    lstrcpyn(bytes(copies[2]), reinterpret_cast<const unsigned char*>(source), size);
    for (const std::string& copy : copies) EXPECT_EQ(copy, target) << source << " " << size;
  }
  unsigned char whole[4];
  EXPECT_EQ(strcpy(whole, "abc"), whole);
  EXPECT_EQ(strlen(whole), 3u);
}

TEST(Text, ReadsNumbersAndMeasuresFormats) {
  for (const auto& [text, number] : Table<const char*, int>{{"", 0},
                                                            {" -12x", -12},
                                                            {"x1", 0},
                                                            {"99999999999999999999", INT_MAX},
                                                            {"-2147483649", INT_MIN}}) {
    errno = 7;
    EXPECT_EQ(TextToInt(text), number) << text;
    EXPECT_EQ(errno, 7) << text;
  }
  EXPECT_EQ(_atoi64("-9007199254740993 "), -9007199254740993);
  EXPECT_EQ(Length("%s %5d", "abc", 7), 9);
  EXPECT_EQ(Length("%s", std::string(5000, 'x').c_str()), 5000);
}

TEST(Time, IsLocal) {
  for (const auto& [zone, seconds, local] : Table<const char*, std::time_t, std::string>{
           {"UTC0", 0, "1970-01-01 00:00:00.777/0"},
           {"XST-5:30", 1709820309, "2024-03-07 19:35:09.777/0"},
           {"EST5EDT,M3.2.0,M11.1.0", 1709820309, "2024-03-07 09:05:09.777/0"},
           {"EST5EDT,M3.2.0,M11.1.0", 1720000000, "2024-07-03 05:46:40.777/0"},
           {"UTC0", INT64_MAX, "1900-01-00 00:00:00.777/0"}}) {
    ::setenv("TZ", zone, 1);
    _SYSTEMTIME time{};
    time.wMilliseconds = 777;
    time.wDayOfWeek = 3;
    ConvertTimeToSystemTime(&time, seconds);
    EXPECT_EQ(Shown(time), local) << zone;
    ::unsetenv("TZ");
  }
}

TEST(Time, IsTheSameForAllThreadsAndFollowsTheClock) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 2000; ++i) {
        const std::string before = ClockNow();
        _SYSTEMTIME now{};
        EXPECT_EQ(GetSystemTime(&now), 1);
        ASSERT_GE(Shown(now), before);
        ASSERT_LE(Shown(now), ClockNow());
      }
    });
  }
  _SYSTEMTIME first{}, now{};
  GetSystemTime(&first);
  EXPECT_TRUE(WaitUntil([&] { return GetSystemTime(&now) == 1 && now.wSecond != first.wSecond; }));
}

TEST(Time, SleepsAtLeastAsLongAsAsked) {
  const DWORD start = GetTickCount();
  Sleep(30);
  const DWORD slept = GetTickCount() - start;
  EXPECT_GE(slept, 29u);
  EXPECT_LT(slept, 20'000u);
  errno = EDOM;
  EXPECT_EQ(GetLastError(), EDOM);
}
