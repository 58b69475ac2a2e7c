// Runs every file of the folders that it is given through a fuzz target, with any compiler.
#include <cstdio>
#include <filesystem>
#include <string>

#include "fuzz/fuzz_target.h"
#include "support/temp_folder.h"

int main(int argc, char** argv) {
  int inputs = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : std::filesystem::directory_iterator(argv[i])) {
      const std::string name = file.path().string();
      std::printf("%s\n", name.c_str());
      std::fflush(stdout);  // the last line names the input that fails
      const std::string input = Slurp(name);
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
      ++inputs;
    }
  }
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
