// The journal of an update: enough to finish it or to take it back, whenever it was cut short.
//
// It is written when all new files are checked and all old ones kept aside, so before it there is
// nothing to take back. Until it says that the update is committed, the old files are to be
// restored; from then on the update is only to be finished.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace update {

struct JournalFile {
  std::string name;
  bool existed = false;  ///< whether it replaces a file, which is then kept aside
};

struct Journal {
  std::string version;
  bool committed = false;
  std::vector<JournalFile> files;
};

std::string JournalText(const Journal& journal);
/// Nothing for a text that is none, or names a file that no package may install.
std::optional<Journal> ParseJournal(const std::string& text);

}  // namespace update
