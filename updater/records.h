// Two of the JSON files that an update works with: the journal of the update, and the run record of
// the service.
//
// Both are read strictly: exactly one JSON object, no member twice, little nesting, every
// member of the kind that is expected.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace updater {

struct JournalFile {
  std::string name;
  bool existed = false;  ///< whether it replaces a file, which then has a backup
};

/// What is needed to finish an update that was cut short, or to take it back. It is written when
/// all new files are staged and all old ones backed up: before that there is nothing to take back.
/// An update that is not committed is taken back, a committed one is finished.
struct Journal {
  std::string version;
  bool committed = false;
  std::vector<JournalFile> files;
};

std::string JournalText(const Journal& journal);
/// Nothing for a text that is no journal, or names a file that no package may install.
std::optional<Journal> ParseJournal(const std::string& text);

/// What a running service tells about itself, for the updater that ends it and starts its successor
/// in the same way. The service holds a lock on the file while it runs. When the file can be locked
/// no service runs, and process number and ports mean nothing.
struct RunRecord {
  int pid = 0;
  std::string program;  ///< full path
  std::string folder;   ///< the current folder in which it was started
  std::vector<std::string> arguments;
  std::vector<std::string> environment;  ///< "NAME=value"
  std::string build;                     ///< of the program
  bool serving = false;                  ///< whether it answers commands, on at least one port
  int port = 0;                          ///< 0 for none
  int sslPort = 0;
};

std::string RunRecordText(const RunRecord& record);
/// Nothing for a text that is no run record, which includes one that is just being written.
std::optional<RunRecord> ParseRunRecord(const std::string& text);
std::optional<RunRecord> ReadRunRecord(const std::string& file);

}  // namespace updater
