// The run file: at most one service runs in a folder, and an updater finds it there.
#pragma once

#include <string>

#include "platform/descriptor.h"
#include "updater/records.h"

namespace host {

/// One controlling thread. The lock goes with the object, or with the process; the file stays, as
/// the last word on how the service was started.
class RunFile {
 public:
  /// False when another service, or an updater that is exchanging its files, holds the folder;
  /// `error` then tells so. A folder in which no file can be made or locked is nobody's.
  bool Take(const std::string& file, std::string& error);
  void Write(const updater::RunRecord& record) const;

 private:
  Descriptor file_;
};

}  // namespace host
