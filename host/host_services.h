// The services that modules ask the host for by name.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "frame/qtp_module.h"
#include "host/discovery.h"

namespace host {

/// A program file of the service, for those who ask what is installed.
struct BinaryFile {
  std::string path;
  std::string version;
};

/// One at a time in a process: the callback that modules get carries no context, so it finds the
/// living object by itself. It outlives all commands.
class HostServices {
 public:
  HostServices(std::vector<BinaryFile> files, Discovery& discovery);
  ~HostServices();
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;

  /// The callback, of type HostDataGetFunc. Returns 0, or -1 for what is refused. Any thread.
  static int Get(const char*, const char*, const char* name, void* out, unsigned int* length);

  /// Whether a restart was asked for since the last call. Any thread.
  bool TakeRestart() { return restart_.load() && restart_.exchange(false); }

 private:
  int Answer(const std::string& name, void* out, unsigned int* length);
  std::string BinaryFileInfo() const;

  const std::vector<BinaryFile> files_;
  Discovery& discovery_;
  std::atomic<bool> restart_ = false;
};

}  // namespace host
