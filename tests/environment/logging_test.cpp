#include "environment/logging.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <regex>

#include "environment/configuration.h"
#include "environment/log_writer.h"
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

  static bool Arrives(const std::string& text) {
    return WaitUntil([&] { return Slurp(GetLogFile()).find(text) != std::string::npos; });
  }

  // The log once everything that was queued has arrived.
  static std::string WrittenLog() {
    static int marker = 0;
    const std::string mark = "<marker " + std::to_string(++marker) + ">";
    LogErr("%s", mark.c_str());
    EXPECT_TRUE(Arrives(mark)) << "the last line is not written";
    return Slurp(GetLogFile());
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
  SetIfScanningProcess(true);
  EXPECT_TRUE(GetIfScanningProcess());
  EXPECT_NE(WrittenLog(), text) << "the scanning process logs, too";
  SetIfScanningProcess(false);
}

TEST_F(LogFile, HoldsTheLinesBeforeACrash) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto failThenCrash = [] {
    for (int i = 1; i <= 9; ++i) LogErr("<failing %d>", i);
    if (Arrives("<failing 9>")) ::kill(::getpid(), SIGKILL);
  };
  EXPECT_EXIT(failThenCrash(), testing::KilledBySignal(SIGKILL), "");
  const std::string text = Slurp(GetLogFile());
  std::size_t at = 0;
  for (int i = 1; i <= 9 && at != std::string::npos; ++i) {
    at = text.find("<failing " + std::to_string(i) + ">", at);
  }
  EXPECT_NE(at, std::string::npos) << text;
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

TEST_F(LogFile, BeginsANewFileBeforeItGrowsTooLarge) {
  const std::string file = GetLogFile();
  const auto old = [&file](int number) { return file + "." + std::to_string(number); };
  Spit(GetInitFile(), "[QV]\nLogLevel=2\nLogMaxMiB=1\n");
  for (const char batch : {'a', 'b', 'c', 'd', 'e'}) {
    WriteLogAsync(file, std::string(700 * 1024, batch));
    WriteLogAsync(file, ".");
  }
  const auto holds = [](const std::string& path, char batch) {
    const std::string text = Slurp(path);
    return text.size() == 700 * 1024 + 1 && text.find_first_not_of(batch) == 700 * 1024;
  };
  EXPECT_TRUE(holds(file, 'e'));
  for (const auto& [number, batch] : Table<int, char>{{1, 'd'}, {2, 'c'}, {3, 'b'}}) {
    EXPECT_TRUE(holds(old(number), batch)) << number;
  }
  EXPECT_FALSE(std::filesystem::exists(old(4)));

  // Whoever renames the files has the lock on the log; others write on.
  const Descriptor other(::open(file.c_str(), O_RDONLY));
  ASSERT_EQ(::flock(other.get(), LOCK_SH), 0);
  WriteLogAsync(file, std::string(700 * 1024, 'f'));
  EXPECT_EQ(Slurp(file).size(), 2 * 700 * 1024 + 1);
}

TEST(ForLog, BoundsAndMasksForeignBytes) {
  const std::string longest(2048, 'x');
  for (const auto& [foreign, shown] : Table<std::string, std::string>{
           {"", ""},
           {"plain \xC3\xBC 100%s", "plain \xC3\xBC 100%s"},
           {std::string("a\0b\r\n\x1B[2J\t\x7F", 11), "a?b???[2J??"},
           {"\xC2\x9B\xC2\xA0\xC2", "??\xC2\xA0\xC2"},
           {longest, longest},
           {longest + "y", longest + "... (2049 bytes)"},
           {longest.substr(1) + "\xC3\xBC", longest.substr(1) + "... (2049 bytes)"},
           {std::string(3000, '\x80'), std::string(2044, '\x80') + "... (3000 bytes)"}}) {
    EXPECT_EQ(ForLog(foreign), shown);
  }
}

// A log whose file is a pipe: the writer waits until somebody reads.
class SlowLog : public ::testing::Test {
 protected:
  SlowLog() { EXPECT_EQ(::mkfifo(pipe_.c_str(), 0600), 0); }

  // Everything up to the text, which is to arrive.
  std::string ReadUpTo(const std::string& end) {
    if (reader_ < 0) reader_ = ::open(pipe_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::string text;
    EXPECT_TRUE(WaitUntil([&] {
      char bytes[4096];
      const ssize_t count = ::read(reader_, bytes, sizeof bytes);
      if (count > 0) text.append(bytes, static_cast<std::size_t>(count));
      return text.ends_with(end);
    })) << text;
    return text;
  }

  ~SlowLog() override {
    log_.Close();
    ::close(reader_);
  }

  const TempFolder temp_;
  const std::string pipe_ = temp_ / "log";
  CAsyncLogging log_;
  int reader_ = -1;
};

TEST_F(SlowLog, TakesLinesDuringAWriteAndWritesThemInOrder) {
  std::string all;
  for (int i = 0; i < 100; ++i) {
    const std::string line = std::to_string(i) + "\n";
    EXPECT_TRUE(log_.Log({line.substr(0, 1), line.substr(1)}, pipe_)) << i;
    all += line;
  }
  EXPECT_EQ(ReadUpTo("\n99\n"), all);
  EXPECT_TRUE(log_.Log({"after a rest\n"}, pipe_));
  EXPECT_EQ(ReadUpTo("rest\n"), "after a rest\n");
}

TEST_F(SlowLog, WritesWhatIsPendingWhenItCloses) {
  EXPECT_TRUE(log_.Log({"being written\n"}, pipe_));
  EXPECT_TRUE(log_.Log({"pending\n"}, pipe_));
  auto closed = std::async(std::launch::async, [this] { log_.Close(); });
  EXPECT_TRUE(WaitUntil([this] { return !log_.Log({""}, pipe_); })) << "a closed log takes lines";
  EXPECT_EQ(closed.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  EXPECT_EQ(ReadUpTo("pending\n"), "being written\npending\n");
  closed.get();
}

}  // namespace
