// The exchange of the service's program files for those of a package: all of them or none, also
// when the process or the machine stops at any moment.
//
// The order is Prepare, Exchange, Commit, Finish; or, while it is not committed, Undo and CleanUp.
// Every file that was there before is there at every moment, old or new. The calls return "" or a
// sentence that tells what failed. None needs to know how far an earlier one came: Finish, Undo and
// CleanUp may be repeated. The caller holds the updater's lock, and no service runs during Exchange
// and Undo.
#pragma once

#include <optional>
#include <string>

#include "updater/file_operations.h"
#include "updater/journal.h"
#include "updater/manifest.h"
#include "updater/places.h"

namespace update {

/// Copies the package's files to their file system and checks the copies against the manifest,
/// keeps the old files aside and writes the journal. The programs are as they were.
std::string Prepare(FileOperations& files, const Places& places, const Manifest& manifest,
                    Journal& journal);
/// Moves the new files into their places.
std::string Exchange(FileOperations& files, const Places& places, const Journal& journal);
/// Makes the update count. A failure leaves it to be undone.
std::string Commit(FileOperations& files, const Places& places, Journal& journal);
/// Ends a committed update: stores the installed version and cleans up.
std::string Finish(FileOperations& files, const Places& places, const Journal& journal);
/// Puts the old files back and removes those that were not there. `changed` tells whether there was
/// anything to do.
std::string Undo(FileOperations& files, const Places& places, const Journal& journal,
                 bool& changed);
/// Removes everything but the files in their places.
std::string CleanUp(FileOperations& files, const Places& places);

/// The journal of an update that was cut short; nothing when there is none. `error` tells when
/// there is one that cannot be read.
std::optional<Journal> FindJournal(const Places& places, std::string& error);

}  // namespace update
