#include "host/modules.h"

#include <filesystem>
#include <random>

#include "host/complaint.h"

namespace host {

bool Modules::Start(const std::vector<std::string>& files, const std::string& program) {
  const unsigned int seed = std::random_device()();
  for (const std::string& file : files) {
    std::string error;
    auto module = ModuleLibrary::Load(std::filesystem::absolute(file).string(), error);
    if (module != nullptr && !module->Start(program, seed)) {
      error = "The module " + module->file() + " does not start.";
    }
    if (!error.empty()) {
      Complain(error);
      return false;
    }
    modules_.push_back(std::move(module));
  }
  return true;
}

void Modules::AnnounceStop() {
  for (const auto& module : modules_) module->AnnounceStop();
}

void Modules::Finish() {
  for (const auto& module : modules_) module->Finish();
}

std::string Modules::Aliases() const {
  std::string aliases;
  for (const auto& module : modules_) {
    aliases += (aliases.empty() ? "" : ",") + module->alias();
  }
  return aliases;
}

std::vector<BinaryFile> Modules::Files() const {
  std::vector<BinaryFile> files;
  for (const auto& module : modules_) {
    files.push_back({module->file(), module->VersionDescription()});
  }
  return files;
}

}  // namespace host
