#include "platform/diagnostics.h"

#include "support/testing.h"

TEST(Diagnostics, GoToTheSinkOnlyWhileItKeepsDebugLines) {
  static bool isDebug;
  static std::string written;
  const LogSink sink = {[] { return isDebug; },
                        [](const char* format, std::va_list arguments) {
                          char line[100];
                          std::vsnprintf(line, sizeof line, format, arguments);
                          written += line;
                        },
                        [](const char* format, std::va_list) { written += format; }};
  isDebug = false;
  written.clear();
  Log(8, "no sink");
  SetLogSink(&sink);
  Log(1, "off");
  LogFailure("failed;");
  isDebug = true;
  for (const int level : {0, 8}) Log(level, "%s %d;", "on", level);
  SetLogSink(nullptr);
  Log(8, "taken away");
  LogFailure("taken away");
  EXPECT_EQ(written, "failed;on 0;on 8;");
}

TEST(Diagnostics, PrintAFailureAndKeepItsCode) {
  errno = ENOENT;
  testing::internal::CaptureStdout();
  PrintFailure("failed %d %s\n", errno, "name");
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "failed 2 name\n");
  for (const bool flag : {true, false}) {
    SetIfScanningProcess(flag);
    EXPECT_EQ(GetIfScanningProcess(), flag);
  }
}
