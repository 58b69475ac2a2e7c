// What a running service tells of itself in a file of its work folder, for the updater that is to
// end it and to start its successor in the same way.
//
// The service keeps a lock on the file while it runs: of a file that can be locked, number and
// ports mean nothing any more.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace update {

struct RunRecord {
  int pid = 0;
  std::string program;  ///< full path
  std::string folder;   ///< in which it was started
  std::vector<std::string> arguments;
  std::vector<std::string> environment;  ///< "NAME=value"
  int port = 0;                          ///< on which it answers, 0 for none
  int sslPort = 0;
};

std::string RunRecordText(const RunRecord& record);
/// Nothing for a text that is no such record, as is one that is being written.
std::optional<RunRecord> ParseRunRecord(const std::string& text);
std::optional<RunRecord> ReadRunRecord(const std::string& file);

}  // namespace update
