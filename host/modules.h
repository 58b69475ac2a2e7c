// The modules of the service, started and ended together.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/host_services.h"
#include "host/module_library.h"

namespace host {

/// One controlling thread; what `all` gives may be read by any once they are started.
class Modules {
 public:
  /// False, with the reason told, when one cannot be loaded or does not start.
  bool Start(const std::vector<std::string>& files, const std::string& program);
  void AnnounceStop();
  void Finish();

  const std::vector<std::unique_ptr<ModuleLibrary>>& all() const { return modules_; }
  /// Separated by commas.
  std::string Aliases() const;
  std::vector<BinaryFile> Files() const;

 private:
  std::vector<std::unique_ptr<ModuleLibrary>> modules_;
};

}  // namespace host
