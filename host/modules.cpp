#include "host/modules.h"

#include <dlfcn.h>

#include <filesystem>
#include <random>
#include <utility>

namespace host {

std::unique_ptr<ModuleLibrary> ModuleLibrary::Load(const std::string& file, std::string* why) {
  // dlerror tells the reason, which the platform layer's loader leaves out.
  void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* reason = ::dlerror();
    *why = "The module " + file + " cannot be loaded: " + (reason != nullptr ? reason : "unknown");
    return nullptr;
  }
  std::unique_ptr<ModuleLibrary> library(new ModuleLibrary(file, handle));
  std::string missing;
  const auto resolve = [&](auto& function, const char* name) {
    void* symbol = ::dlsym(handle, name);
    if (symbol == nullptr) missing += (missing.empty() ? "" : ", ") + std::string(name);
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(symbol);
  };
  ModuleFunctions& f = library->functions_;
  resolve(f.doAction, "DoAction");
  resolve(f.distributeCommand, "DistributeCommand");
  resolve(f.closeWebSocket, "CloseWebSocket");
  resolve(f.getWaitTimeout, "GetWaitTimeout");
  resolve(f.getAlias, "GetAlias");
  resolve(f.getVersionDesc, "GetVersionDesc");
  resolve(f.getPorts, "GetPorts");
  resolve(f.getImage, "GetImage");
  resolve(f.setImage, "SetImage");
  resolve(f.reserved, "Reserved");
  if (!missing.empty()) {
    *why = "The module " + file + " lacks " + missing + ".";
    return nullptr;
  }
  unsigned int alias = 0;
  f.getAlias(&alias);
  for (; (alias & 0xFF) != 0; alias >>= 8) library->alias_ += static_cast<char>(alias & 0xFF);
  return library;
}

ModuleLibrary::~ModuleLibrary() { ::dlclose(handle_); }

std::string ModuleLibrary::VersionDescription() const {
  const int size = functions_.getVersionDesc(nullptr);
  if (size <= 1) return "";
  std::vector<char> text(static_cast<std::size_t>(size), '\0');
  functions_.getVersionDesc(text.data());
  return text.data();
}

int ModuleLibrary::DefaultPort(bool secure) const {
  unsigned int port = 0;
  functions_.getPorts(secure ? 1 : 0, &port);
  return port <= 65535 ? static_cast<int>(port) : 0;
}

bool ModuleLibrary::Start(const std::string& program, unsigned int seed) {
  return functions_.doAction(0, program.c_str(), file_.c_str(), seed);
}

void ModuleLibrary::AnnounceStop() { functions_.doAction(2, nullptr, nullptr, 0); }

void ModuleLibrary::Finish() { functions_.doAction(3, nullptr, nullptr, 0); }

bool Modules::Start(const std::vector<std::string>& files, const std::string& program,
                    std::string* why) {
  const unsigned int seed = std::random_device()();
  for (const std::string& file : files) {
    auto module = ModuleLibrary::Load(std::filesystem::absolute(file).string(), why);
    if (module != nullptr && module->Start(program, seed)) {
      modules_.push_back(std::move(module));
      continue;
    }
    if (module != nullptr) {
      *why = "The module " + module->file() + " does not start.";
      module->Finish();
    }
    return false;
  }
  return true;
}

Modules::~Modules() {
  AnnounceStop();
  for (const auto& module : modules_) module->Finish();
}

void Modules::AnnounceStop() {
  if (std::exchange(stopAnnounced_, true)) return;
  for (const auto& module : modules_) module->AnnounceStop();
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
