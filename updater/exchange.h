// The exchange of the service's program files for those of a package: all of them or none, also
// when the process or the machine stops at any moment.
//
// The order is Prepare, Exchange, Commit, Finish; or, as long as it is not committed, Undo and
// CleanUp. At every moment each file that was there before is there, old or new. The calls return
// "" or a sentence that tells what failed. Finish, Undo and CleanUp may be repeated, whatever an
// earlier call has done already. The caller holds the updater's lock, and no service runs during
// Exchange and Undo.
#pragma once

#include <optional>
#include <string>

#include "package/manifest.h"
#include "updater/file_operations.h"
#include "updater/records.h"
#include "updater/update_paths.h"

namespace updater {

/// Copies the package's files into the staging folder and checks the copies against the manifest,
/// backs the old files up and writes the journal. The programs stay as they are.
std::string Prepare(FileOperations& files, const UpdatePaths& paths,
                    const package::Manifest& manifest, Journal& journal);
/// Moves the new files into their paths.
std::string Exchange(FileOperations& files, const UpdatePaths& paths, const Journal& journal);
/// From here on the update is finished instead of taken back. After a failure it is to be undone.
std::string Commit(FileOperations& files, const UpdatePaths& paths, Journal& journal);
/// Ends a committed update: stores the installed version, tells of it in the update's record and
/// cleans up.
std::string Finish(FileOperations& files, const UpdatePaths& paths, const Journal& journal);
/// Puts the old files back and removes those that were not there. `changed` tells whether there was
/// anything to do.
std::string Undo(FileOperations& files, const UpdatePaths& paths, const Journal& journal,
                 bool& changed);
/// Removes everything but the files in their paths.
std::string CleanUp(FileOperations& files, const UpdatePaths& paths);

/// The journal of an update that was cut short; nothing when there is none. When there is one that
/// cannot be read, `error` is a sentence that says so.
std::optional<Journal> FindJournal(const UpdatePaths& paths, std::string& error);

}  // namespace updater
