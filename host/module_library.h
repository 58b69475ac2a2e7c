// A module in memory: a shared library with the ten functions of a module, loaded and resolved as a
// whole or not at all.
#pragma once

#include <memory>
#include <string>

#include "frame/qtp_module.h"

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

/// Unloads the library when destroyed; by then nothing may run in it.
class ModuleLibrary {
 public:
  /// Null when the file cannot be loaded or lacks a function; `error` then says which and why.
  static std::unique_ptr<ModuleLibrary> Load(const std::string& file, std::string& error);
  ~ModuleLibrary();
  ModuleLibrary(const ModuleLibrary&) = delete;
  ModuleLibrary& operator=(const ModuleLibrary&) = delete;

  const ModuleFunctions& functions() const { return functions_; }
  const std::string& file() const { return file_; }
  const std::string& alias() const { return alias_; }
  std::string VersionDescription() const;
  int DefaultPort(bool secure) const;

  /// The lifecycle, each once and in this order. Start returns whether the module took it.
  bool Start(const std::string& program, unsigned int seed);
  void AnnounceStop();
  void Finish();

 private:
  ModuleLibrary(std::string file, void* handle) : file_(std::move(file)), handle_(handle) {}

  std::string file_;
  std::string alias_;
  void* handle_;
  ModuleFunctions functions_;
};

}  // namespace host
