#include "environment/logging.h"

#include <regex>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "platform/diagnostics.h"
#include "support/testing.h"

namespace {

class LogFile : public ::testing::Test {
 protected:
  LogFile() {
    InitProgramInfo();
    SetFullLogging(false);
    SetLevel("2");
    WrittenLog();
    Spit(GetLogFile(), "");
  }

  static void SetLevel(const std::string& level) {
    Spit(GetInitFile(), "[QV]\nLogLevel=" + level + "\nWorkMode=6\n");
  }

  // The log once everything that was queued has arrived. Lines that wait for a running write are
  // written by a later call, so calls follow until the marker is there.
  static std::string WrittenLog() {
    static int marker = 0;
    const std::string mark = "<marker " + std::to_string(++marker) + ">";
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::string text;
    do {
      LogErr("%s", mark.c_str());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      text = Slurp(GetLogFile());
    } while (text.find(mark) == std::string::npos && std::chrono::steady_clock::now() < end);
    return text;
  }
};

TEST_F(LogFile, FormatsALineExactly) {
  SetProcessMode(WorkMode::OwnPorts);
  errno = ENOENT;
  EXPECT_NE(LogErr("open %s", "failed"), 0);
  EXPECT_EQ(errno, ENOENT) << "a log line changed its caller's error code";
  const std::string text = WrittenLog();
  const std::time_t now = std::time(nullptr);
  char date[16];
  std::strftime(date, sizeof date, "%m/%d/%Y", std::localtime(&now));
  const std::regex line(R"((^|\n)\[Process: {0,5}\d+ Thread: {0,5}\d+\] \[)" + std::string(date) +
                        R"( \d\d:\d\d:\d\d\.\d{3}\] )"
                        R"(\[Error-3-6\]: open failed GetLastError = 2\n)");
  EXPECT_TRUE(std::regex_search(text, line)) << text;
  SetProcessMode(WorkMode::Service);
}

TEST_F(LogFile, KeepsTheLevelsThatTheFileAsksFor) {
  for (const auto& [level, kept] : Table<const char*, std::string>{{"1", ""},
                                                                   {"2", "e"},
                                                                   {"6", "ei"},
                                                                   {"8", "d"},
                                                                   {"14", "eid"},
                                                                   {"16", ""},
                                                                   {"abc", ""}}) {
    SetLevel(level);
    std::string text;
    if (LogErr("e") != 0) text += "e";
    if (LogInfo("i") != 0) text += "i";
    if (LogDebug("d") != 0) text += "d";
    EXPECT_EQ(text, kept) << level;
    EXPECT_EQ(IsDebugMode(), kept.ends_with('d') ? 8 : 0) << level;
  }
  Spit(GetInitFile(), "");
  EXPECT_EQ(LogErr("e"), 0);
}

TEST_F(LogFile, TakesRawBytesLongTextsAndThePlatformsDiagnostics) {
  ::Log(2, "not kept %d", 1);
  SetLevel("14");
  const unsigned char bytes[] = {'a', 0, '\n', 0xFF, '%'};
  EXPECT_NE(LogDebug("100%s", bytes, 5), 0);
  EXPECT_NE(LogDebug("%s", std::string(5000, 'x').c_str()), 0);
  ::Log(2, "kept %d", 2);
  const std::string text = WrittenLog();
  EXPECT_EQ(text.find("not kept"), std::string::npos);
  for (const std::string& line : {"100%s\n" + std::string("a\0\n\xFF%", 5) + "\n",
                                  std::string(5000, 'x') + "\n", std::string("kept 2\n")}) {
    EXPECT_NE(text.find("[Debug-0-6]: " + line), std::string::npos) << line;
  }
}

TEST_F(LogFile, KeepsEveryLineOfManyThreadsInOrder) {
  constexpr int kThreads = 4, kLines = 150;
  std::vector<std::jthread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) LogErr("<%d:%d>", t, i);
    });
  }
  threads.clear();
  const std::string text = WrittenLog();
  for (int t = 0; t < kThreads; ++t) {
    std::size_t at = 0;
    for (int i = 0; i < kLines; ++i) {
      at = text.find("<" + std::to_string(t) + ":" + std::to_string(i) + ">", at);
      ASSERT_NE(at, std::string::npos) << t << ":" << i << " is missing or out of order";
    }
  }
}

}  // namespace
