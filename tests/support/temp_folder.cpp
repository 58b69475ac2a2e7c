#include "support/temp_folder.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

constexpr const char* kInside = "QV_RUNS_IN_TEMP_FOLDER";

}  // namespace

TempFolder::TempFolder() {
  std::string name = std::filesystem::temp_directory_path() / "qv_test_XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = std::filesystem::canonical(name).string() + "/";
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::optional<int> RunInTempFolder(char** argv) {
  if (std::getenv(kInside) != nullptr) return std::nullopt;
  const TempFolder folder;
  const std::filesystem::path self = std::filesystem::canonical(argv[0]);
  std::string copy = folder / "program";
  std::filesystem::copy_file(self, copy);
  ::setenv(kInside, self.parent_path().c_str(), 1);
  const pid_t child = ::fork();
  if (child == 0) {
    argv[0] = copy.data();  // what starts itself again stays in the folder
    ::execv(copy.c_str(), argv);
    std::perror("execv");
    std::_Exit(127);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) return 127;
  if (WIFSIGNALED(status)) std::fprintf(stderr, "ended by signal %d\n", WTERMSIG(status));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 126;
}

std::string ProgramsOwnFolder() {
  const char* folder = std::getenv(kInside);
  return folder == nullptr ? "" : folder + std::string("/");
}

std::string Slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Spit(const std::string& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}
