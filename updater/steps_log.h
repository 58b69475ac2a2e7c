// The log of the updates: a line a step, with the local time and the process.
#pragma once

#include <string>

namespace update {

/// Lines are appended, each in one write, so that several processes may share the file. A line that
/// cannot be written is lost: no update fails for the want of a log.
class StepsLog {
 public:
  explicit StepsLog(std::string file) : file_(std::move(file)) {}
  /// Control characters become '?'.
  void Say(const std::string& sentence) const;

 private:
  std::string file_;
};

}  // namespace update
