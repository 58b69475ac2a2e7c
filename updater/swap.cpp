#include "updater/swap.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "environment/update_names.h"
#include "platform/file_content.h"

namespace update {

namespace {

constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kPermissions = 0777;
constexpr mode_t kExecutable = 0111;

/// "" for success, else a sentence.
std::string Told(int error, const std::string& what, const std::string& path) {
  if (error == 0) return "";
  return what + " " + path + " failed: " + std::strerror(error) + ".";
}

bool Look(const std::string& path, struct stat& status) {
  return ::lstat(path.c_str(), &status) == 0;
}

bool IsSameFile(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return Look(one, first) && Look(other, second) && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

std::string KeepAside(FileOperations& files, const Places& places, const std::string& name,
                      mode_t mode) {
  const std::string from = places.work + name, to = places.old + name;
  int error = files.Link(from, to);
  if (error == EPERM || error == ENOTSUP || error == EMLINK) {
    // Not every file system gives a file two names.
    std::string sum;
    error = files.Copy(from, to, mode, &sum);
  }
  return Told(error, "Keeping aside", from);
}

/// Copies and checks one file, and keeps aside what it is to replace.
std::string PrepareFile(FileOperations& files, const Places& places, const ManifestFile& file,
                        Journal& journal) {
  const std::string target = places.work + file.name;
  struct stat old {};
  const bool existed = Look(target, old);
  if (existed && !S_ISREG(old.st_mode)) return target + " is no file that could be replaced.";
  if (!existed && errno != ENOENT) return Told(errno, "Looking at", target);

  const mode_t mode =
      (existed ? old.st_mode & kPermissions : kNewFileMode) | (file.executable ? kExecutable : 0);
  const std::string source = places.package + file.name;
  std::string sum;
  const int copied = files.Copy(source, places.fresh + file.name, mode, &sum);
  if (copied == ENOENT) return "The package lacks " + file.name + ".";
  if (copied != 0) return Told(copied, "Copying", source);
  if (sum != file.sha256) return file.name + " is not the file that the manifest tells of.";

  if (existed) {
    std::string error = KeepAside(files, places, file.name, old.st_mode & kPermissions);
    if (!error.empty()) return error;
  }
  journal.files.push_back({file.name, existed});
  return "";
}

}  // namespace

std::string Prepare(FileOperations& files, const Places& places, const Manifest& manifest,
                    Journal& journal) {
  std::string error = CleanUp(files, places);
  for (const std::string& folder : {places.room, places.fresh, places.old}) {
    if (error.empty()) error = Told(files.MakeFolder(folder), "Making", folder);
  }
  journal = {manifest.version, false, {}};
  for (const ManifestFile& file : manifest.files) {
    if (error.empty()) error = PrepareFile(files, places, file, journal);
  }
  for (const std::string& folder : {places.fresh, places.old, places.room, places.work}) {
    if (error.empty()) error = Told(files.SyncFolder(folder), "Flushing", folder);
  }
  if (!error.empty()) return error;
  int written = files.Write(places.journal, JournalText(journal));
  if (written == 0) written = files.SyncFolder(places.room);
  return Told(written, "Writing", places.journal);
}

std::string Exchange(FileOperations& files, const Places& places, const Journal& journal) {
  for (const JournalFile& file : journal.files) {
    const std::string target = places.work + file.name;
    if (const int error = files.Rename(places.fresh + file.name, target)) {
      return Told(error, "Replacing", target);
    }
  }
  return Told(files.SyncFolder(places.work), "Flushing", places.work);
}

std::string Commit(FileOperations& files, const Places& places, Journal& journal) {
  Journal committed = journal;
  committed.committed = true;
  if (const int error = files.Write(places.journal, JournalText(committed))) {
    return Told(error, "Writing", places.journal);
  }
  // The word is given now. A folder that cannot be flushed must not turn it back.
  files.SyncFolder(places.room);
  journal = committed;
  return "";
}

std::string Finish(FileOperations& files, const Places& places, const Journal& journal) {
  const ProfileEntry version[] = {{INSTALLED_VERSION_KEY, journal.version}};
  if (const int error = files.StoreSettings(places.settings, version)) {
    return Told(error, "Storing the installed version in", places.settings);
  }
  // In this order on the disk, too.
  files.SyncFolder(places.work);
  return CleanUp(files, places);
}

std::string Undo(FileOperations& files, const Places& places, const Journal& journal,
                 bool& changed) {
  changed = false;
  for (const JournalFile& file : journal.files) {
    const std::string target = places.work + file.name, kept = places.old + file.name;
    int error = 0;
    struct stat status {};
    // A new file that is still waiting has replaced nothing.
    if (Look(places.fresh + file.name, status)) continue;
    if (file.existed) {
      // A file that is not kept aside any more has been put back by an Undo that was cut short.
      if (!Look(kept, status) || IsSameFile(kept, target)) continue;
      error = files.Rename(kept, target);
    } else {
      if (!Look(target, status)) continue;
      error = files.Remove(target);
    }
    if (error != 0) return Told(error, "Putting back", target);
    changed = true;
  }
  return Told(files.SyncFolder(places.work), "Flushing", places.work);
}

std::string CleanUp(FileOperations& files, const Places& places) {
  // First the journal: should the rest stay, nobody must take it for an update to be undone.
  struct stat status {};
  if (Look(places.journal, status)) {
    if (const int error = files.Remove(places.journal)) {
      return Told(error, "Removing", places.journal);
    }
  }
  return Told(files.RemoveTree(places.room), "Removing", places.room);
}

std::optional<Journal> FindJournal(const Places& places, std::string& error) {
  std::string text;
  const int problem = ReadWholeFile(places.journal.c_str(), &text);
  if (problem == ENOENT || problem == ENOTDIR) return {};
  auto journal = problem == 0 ? ParseJournal(text) : std::nullopt;
  if (!journal) error = "The journal " + places.journal + " of an earlier update is unreadable.";
  return journal;
}

}  // namespace update
