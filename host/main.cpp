#include <cstdio>
#include <exception>

#include "host/options.h"
#include "host/service.h"

int main(int argc, char** argv) {
  const host::Options options = host::ParseOptions(argc, argv);
  if (!options.error.empty()) {
    std::fprintf(stderr, "marvique-service: %s\n", options.error.c_str());
    return 2;
  }
  if (options.help) {
    std::fputs(host::kUsage, stdout);
    return 0;
  }
  if (options.version) {
    std::puts("marvique-service " HOST_VERSION);
    return 0;
  }
  try {
    return host::RunService(options, HOST_VERSION);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "marvique-service: %s\n", problem.what());
    return 1;
  }
}
