// The three JSON files that an update works with: the manifest of the package, the journal of the
// update, and the run record of the service.
//
// All of them are read strictly: exactly one JSON object, no member twice, little nesting, every
// member of the kind that is expected.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace updater {

struct ManifestFile {
  std::string name;    ///< of a file directly in the package and in the work folder
  std::string sha256;  ///< 64 hexadecimal digits in lower case
  bool executable = false;
};

/// What a package holds. Its text is untrusted until ParseManifest has checked it.
struct Manifest {
  std::string version;  ///< stored as the installed version
  std::string build;    ///< the build that the new service must tell, "" for any
  std::vector<ManifestFile> files;
};

inline constexpr const char* MANIFEST_NAME = "manifest.json";

/// Whether a package may install a file of that name: a plain name, and none of the settings, of
/// the service's folders or of what an update needs itself.
bool MayBeInstalled(std::string_view name);

/// Returns the manifest only when all of it can be acted on: it is for this product, its version
/// can be stored, and each file has a name of its own that MayBeInstalled. Else nothing, and
/// `error` is a sentence with the reason.
std::optional<Manifest> ParseManifest(const std::string& text, std::string& error);
/// The same for the manifest in a package folder.
std::optional<Manifest> LoadManifest(const std::string& package, std::string& error);

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
