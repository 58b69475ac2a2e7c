// A log line beside the bare file reads of its filter and its work mode, and many lines beside one
// plain write for each.
#include <benchmark/benchmark.h>

#include "bare_read.h"
#include "environment/log_writer.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/temp_folder.h"

namespace {

void Prepare(int logLevel) {
  InitProgramInfo();
  std::string text = "[QV]\n";
  for (int i = 0; i < 10; ++i) {
    text += "Key" + std::to_string(i) + "=value" + std::to_string(i) + "\n";
  }
  text += "LogLevel=" + std::to_string(logLevel) + "\nWorkMode=0\n";
  SpitAndAge(GetInitFile(), text);
}

void LogOne(int number) { LogInfo("a line of ordinary length, number %d of %s", number, "many"); }

// Reads of the filter and of the work mode.
void BareReadsOfLogLine(benchmark::State& state) {
  Prepare(14);
  const std::string file = GetInitFile();
  for (auto _ : state) {
    BareRead(file.c_str());
    BareRead(file.c_str());
  }
}
BENCHMARK(BareReadsOfLogLine);

void LogLineAtLevel14(benchmark::State& state) {
  Prepare(14);
  SetFullLogging(false);
  int i = 0;
  for (auto _ : state) LogOne(++i);
}
BENCHMARK(LogLineAtLevel14);

// Full logging spares the read of the filter.
void BareReadOfFullLogLine(benchmark::State& state) {
  Prepare(14);
  const std::string file = GetInitFile();
  for (auto _ : state) BareRead(file.c_str());
}
BENCHMARK(BareReadOfFullLogLine);

void LogLineUnderFullLogging(benchmark::State& state) {
  Prepare(14);
  SetFullLogging(true);
  int i = 0;
  for (auto _ : state) LogOne(++i);
  SetFullLogging(false);
}
BENCHMARK(LogLineUnderFullLogging);

// Several threads at a time.
void LogLineUnderFullLoggingOfFourThreads(benchmark::State& state) {
  if (state.thread_index() == 0) {
    Prepare(14);
    SetFullLogging(true);
  }
  int i = 0;
  for (auto _ : state) LogOne(++i);
  if (state.thread_index() == 0) SetFullLogging(false);
}
BENCHMARK(LogLineUnderFullLoggingOfFourThreads)->Threads(4);

constexpr int kLines = 20'000;

void PlainWritesOf20000Lines(benchmark::State& state) {
  const TempFolder folder;
  const std::string line(110, 'x');
  for (auto _ : state) {
    const int file = ::open((folder / "log").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
    for (int i = 0; i < kLines; ++i) {
      if (::write(file, line.data(), line.size()) < 0) ::abort();
    }
    ::close(file);
  }
}
BENCHMARK(PlainWritesOf20000Lines)->UseRealTime();

// All of them are in the file when the log is closed.
void LogOf20000Lines(benchmark::State& state) {
  const TempFolder folder;
  const std::string file = folder / "log";
  const std::string line(109, 'x');
  for (auto _ : state) {
    CAsyncLogging log;
    for (int i = 0; i < kLines; ++i) log.Log({line, "\n"}, file);
    log.Close();
  }
}
BENCHMARK(LogOf20000Lines)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
