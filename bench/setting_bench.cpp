// A setting beside the bare file read that it stands for.
#include <benchmark/benchmark.h>

#include "bare_read.h"
#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"

namespace {

void Prepare(int keys, int logLevel) {
  InitProgramInfo();
  std::string text = "[QV]\n";
  for (int i = 0; i < keys - 2; ++i) {
    text += "Key" + std::to_string(i) + "=value" + std::to_string(i) + "\n";
  }
  text += "LogLevel=" + std::to_string(logLevel) + "\nWorkMode=0\n";
  SpitAndAge(GetInitFile(), text);
}

void BareReadOf40Keys(benchmark::State& state) {
  Prepare(40, 1);
  const std::string file = GetInitFile();
  for (auto _ : state) BareRead(file.c_str());
}
BENCHMARK(BareReadOf40Keys);

void SettingOf40Keys(benchmark::State& state) {
  Prepare(40, 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(GetConfigurationfromInitFile("Key20", "", DEFAULT_SECTION));
  }
}
BENCHMARK(SettingOf40Keys);

// In the first seconds after a change.
void SettingOf40KeysChangedJustNow(benchmark::State& state) {
  Prepare(40, 1);
  const std::string text = Slurp(GetInitFile());
  int i = 0;
  for (auto _ : state) {
    if (i++ % 100'000 == 0) Spit(GetInitFile(), text);
    benchmark::DoNotOptimize(GetConfigurationfromInitFile("Key20", "", DEFAULT_SECTION));
  }
}
BENCHMARK(SettingOf40KeysChangedJustNow);

void SettingOf40KeysOnTwoThreads(benchmark::State& state) {
  if (state.thread_index() == 0) Prepare(40, 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(GetConfigurationfromInitFile("Key20", "", DEFAULT_SECTION));
  }
}
BENCHMARK(SettingOf40KeysOnTwoThreads)->Threads(2);

}  // namespace
