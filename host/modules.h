// The modules of the service: shared libraries with the ten functions of a module, each loaded and
// resolved as a whole or not at all, started and ended together.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/host_services.h"
#include "marvique/module.h"

namespace host {

/// The ten functions, all of them resolved.
struct ModuleFunctions {
  decltype(&::DoAction) doAction = nullptr;
  decltype(&::DistributeCommand) distributeCommand = nullptr;
  decltype(&::CloseWebSocket) closeWebSocket = nullptr;
  decltype(&::GetWaitTimeout) getWaitTimeout = nullptr;
  decltype(&::GetAlias) getAlias = nullptr;
  decltype(&::GetVersionDesc) getVersionDesc = nullptr;
  decltype(&::GetPorts) getPorts = nullptr;
  decltype(&::GetImage) getImage = nullptr;
  decltype(&::SetImage) setImage = nullptr;
  decltype(&::Reserved) reserved = nullptr;
};

/// One module in memory. Unloads the library when destroyed; by then nothing may run in it.
class ModuleLibrary {
 public:
  /// Null when the file cannot be loaded or lacks a function; `why` then tells which and why.
  static std::unique_ptr<ModuleLibrary> Load(const std::string& file, std::string* why);
  ~ModuleLibrary();
  ModuleLibrary(const ModuleLibrary&) = delete;
  ModuleLibrary& operator=(const ModuleLibrary&) = delete;

  const ModuleFunctions& functions() const { return functions_; }
  const std::string& file() const { return file_; }
  const std::string& alias() const { return alias_; }
  std::string VersionDescription() const;
  /// 0 for any free one.
  int DefaultPort(bool secure) const;

  /// Action 0; returns whether the module took it. Whatever it says, Finish follows some day.
  bool Start(const std::string& program, unsigned int seed);
  /// Action 2: the service is stopping.
  void AnnounceStop();
  /// Action 3, the last call.
  void Finish();

 private:
  ModuleLibrary(std::string file, void* handle) : file_(std::move(file)), handle_(handle) {}

  std::string file_;
  std::string alias_;
  void* handle_;
  ModuleFunctions functions_;
};

/// One controlling thread; what `all` gives may be read by any once they are started. The
/// destructor ends all that started and unloads them: by then no command may run any more.
class Modules {
 public:
  Modules() = default;
  ~Modules();
  Modules(const Modules&) = delete;
  Modules& operator=(const Modules&) = delete;

  /// Loads and starts them in this order; `program` is this process's executable. Returns false,
  /// with the reason in `why`, at the first that cannot be loaded or does not start.
  bool Start(const std::vector<std::string>& files, const std::string& program, std::string* why);
  /// Tells all, once, that the service is stopping. Their commands may still be running.
  void AnnounceStop();

  const std::vector<std::unique_ptr<ModuleLibrary>>& all() const { return modules_; }
  /// Separated by commas.
  std::string Aliases() const;
  std::vector<BinaryFile> Files() const;

 private:
  std::vector<std::unique_ptr<ModuleLibrary>> modules_;
  bool stopAnnounced_ = false;
};

}  // namespace host
