#include "updater/exchange.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "environment/paths.h"
#include "os/file.h"
#include "package/update_record.h"

namespace updater {

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

std::string BackUp(FileOperations& files, const UpdatePaths& paths, const std::string& name,
                   mode_t mode) {
  const std::string from = paths.work + name, to = paths.backup + name;
  int error = files.Link(from, to);
  if (error == EPERM || error == ENOTSUP || error == EMLINK) {
    // Not every file system has hard links.
    std::string sum;
    error = files.Copy(from, to, mode, &sum);
  }
  return Told(error, "Backing up", from);
}

/// Stages and checks one file, and backs up the one that it is to replace.
std::string PrepareFile(FileOperations& files, const UpdatePaths& paths,
                        const package::ManifestFile& file, Journal& journal) {
  const std::string target = paths.work + file.name;
  struct stat old {};
  const bool existed = Look(target, old);
  if (existed && !S_ISREG(old.st_mode)) return target + " is no file that could be replaced.";
  if (!existed && errno != ENOENT) return Told(errno, "Looking at", target);

  const mode_t mode =
      (existed ? old.st_mode & kPermissions : kNewFileMode) | (file.executable ? kExecutable : 0);
  const std::string source = paths.package + file.name;
  std::string sum;
  const int copied = files.Copy(source, paths.staging + file.name, mode, &sum);
  if (copied == ENOENT) return "The package lacks " + file.name + ".";
  if (copied != 0) return Told(copied, "Copying", source);
  if (sum != file.sha256) return file.name + " is not the file that the manifest tells of.";

  if (existed) {
    std::string error = BackUp(files, paths, file.name, old.st_mode & kPermissions);
    if (!error.empty()) return error;
  }
  journal.files.push_back({file.name, existed});
  return "";
}

}  // namespace

std::string Prepare(FileOperations& files, const UpdatePaths& paths,
                    const package::Manifest& manifest, Journal& journal) {
  std::string error = CleanUp(files, paths);
  for (const std::string& folder : {paths.update, paths.staging, paths.backup}) {
    if (error.empty()) error = Told(files.MakeFolder(folder), "Making", folder);
  }
  journal = {manifest.version, false, {}};
  for (const package::ManifestFile& file : manifest.files) {
    if (error.empty() && file.install) error = PrepareFile(files, paths, file, journal);
  }
  for (const std::string& folder : {paths.staging, paths.backup, paths.update, paths.work}) {
    if (error.empty()) error = Told(files.SyncFolder(folder), "Flushing", folder);
  }
  if (!error.empty()) return error;
  int written = files.Write(paths.journal, JournalText(journal));
  if (written == 0) written = files.SyncFolder(paths.update);
  return Told(written, "Writing", paths.journal);
}

std::string Exchange(FileOperations& files, const UpdatePaths& paths, const Journal& journal) {
  for (const JournalFile& file : journal.files) {
    const std::string target = paths.work + file.name;
    if (const int error = files.Rename(paths.staging + file.name, target)) {
      return Told(error, "Replacing", target);
    }
  }
  return Told(files.SyncFolder(paths.work), "Flushing", paths.work);
}

std::string Commit(FileOperations& files, const UpdatePaths& paths, Journal& journal) {
  Journal committed = journal;
  committed.committed = true;
  if (const int error = files.Write(paths.journal, JournalText(committed))) {
    return Told(error, "Writing", paths.journal);
  }
  // It is committed now, also when the folder cannot be flushed.
  files.SyncFolder(paths.update);
  journal = committed;
  return "";
}

std::string Finish(FileOperations& files, const UpdatePaths& paths, const Journal& journal) {
  const ProfileEntry version[] = {{INSTALLED_VERSION_KEY, journal.version}};
  if (const int error = files.StoreSettings(paths.settings, version)) {
    return Told(error, "Storing the installed version in", paths.settings);
  }
  // The version must be on the disk before the journal is gone; then nothing else tells of it.
  files.SyncFolder(paths.work);
  package::WriteUpdateRecord(paths.record, package::UpdateRecord::State::Done, journal.version);
  return CleanUp(files, paths);
}

std::string Undo(FileOperations& files, const UpdatePaths& paths, const Journal& journal,
                 bool& changed) {
  changed = false;
  for (const JournalFile& file : journal.files) {
    const std::string target = paths.work + file.name, kept = paths.backup + file.name;
    int error = 0;
    struct stat status {};
    // A file that is still staged has replaced nothing.
    if (Look(paths.staging + file.name, status)) continue;
    if (file.existed) {
      // A file without a backup was put back by an earlier Undo that was cut short.
      if (!Look(kept, status) || IsSameFile(kept, target)) continue;
      error = files.Rename(kept, target);
    } else {
      if (!Look(target, status)) continue;
      error = files.Remove(target);
    }
    if (error != 0) return Told(error, "Putting back", target);
    changed = true;
  }
  return Told(files.SyncFolder(paths.work), "Flushing", paths.work);
}

std::string CleanUp(FileOperations& files, const UpdatePaths& paths) {
  // The journal first: with it, what may remain would look like an update to be undone.
  struct stat status {};
  if (Look(paths.journal, status)) {
    if (const int error = files.Remove(paths.journal)) {
      return Told(error, "Removing", paths.journal);
    }
  }
  return Told(files.RemoveTree(paths.update), "Removing", paths.update);
}

std::optional<Journal> FindJournal(const UpdatePaths& paths, std::string& error) {
  std::string text;
  const int problem = ReadWholeFile(paths.journal.c_str(), &text);
  if (problem == ENOENT || problem == ENOTDIR) return {};
  auto journal = problem == 0 ? ParseJournal(text) : std::nullopt;
  if (!journal) error = "The journal " + paths.journal + " of an earlier update is unreadable.";
  return journal;
}

}  // namespace updater
