#include <benchmark/benchmark.h>

#include "support/temp_folder.h"

int main(int argc, char** argv) {
  if (const auto result = RunInTempFolder(argv)) return *result;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
