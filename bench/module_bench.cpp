// A command through the module's exported function beside the bare file reads that it consists of.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include "bare_read.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "marvique/module.h"
#include "support/temp_folder.h"

namespace {

// Eight looks at the log filter, the host name, and for both port maps the name and port of two
// entries and the missing name that ends the map.
constexpr int kReadsOfGetServerInfo = 8 + 1 + 2 * 5;

void Prepare() {
  InitProgramInfo();
  SpitAndAge(
      GetInitFile(),
      "[QV]\nLogLevel=1\nPort=2\nPort_mn_0=qtp\nPort_mn_1=hvn\nPort_mp_0=18625\nPort_mp_1=20100\n"
      "SSLPort=2\nSSLPort_mn_0=qtp\nSSLPort_mn_1=hvn\nSSLPort_mp_0=18626\nSSLPort_mp_1=20101\n"
      "Server=127.0.0.1\nWorkMode=0\n");
}

signed char Take(int, void* bytes, const char* text, const void*, unsigned int, const char*) {
  *static_cast<std::size_t*>(bytes) += std::char_traits<char>::length(text);
  return 1;
}

void BareReadsOfGetServerInfo(benchmark::State& state) {
  Prepare();
  const std::string file = GetInitFile();
  for (auto _ : state) {
    for (int i = 0; i < kReadsOfGetServerInfo; ++i) BareRead(file.c_str());
  }
}
BENCHMARK(BareReadsOfGetServerInfo);

void GetServerInfoInProcess(benchmark::State& state) {
  Prepare();
  void* library = ::dlopen((ProgramsOwnFolder() + DEFAULT_MODULE).c_str(), RTLD_NOW);
  if (library == nullptr) {
    state.SkipWithError(::dlerror());
    return;
  }
  const auto act = reinterpret_cast<decltype(&DoAction)>(::dlsym(library, "DoAction"));
  const auto run =
      reinterpret_cast<decltype(&DistributeCommand)>(::dlsym(library, "DistributeCommand"));
  act(0, nullptr, nullptr, 1);
  std::size_t bytes = 0;
  for (auto _ : state) {
    run(1, &bytes, 0, "/qtp/", R"({"id":"1","method":"GetServerInfo","parameter":[]})", nullptr, 0,
        1, &Take, 0, "", nullptr, nullptr, nullptr);
  }
  if (bytes == 0) state.SkipWithError("no reply");
  act(3, nullptr, nullptr, 1);
  ::dlclose(library);
}
BENCHMARK(GetServerInfoInProcess);

}  // namespace
