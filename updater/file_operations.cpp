#include "updater/file_operations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "environment/configuration.h"
#include "os/file.h"
#include "os/system.h"
#include "package/signature.h"

namespace updater {

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kPrivateMode = 0600;

int ResultOf(int call) { return call == 0 ? 0 : errno; }

}  // namespace

int FileOperations::MakeFolder(const std::string& path) {
  return ResultOf(::mkdir(path.c_str(), kFolderMode));
}

int FileOperations::RemoveTree(const std::string& path) {
  std::error_code error;
  // With a separator behind it a link would be followed.
  std::filesystem::remove_all(path.ends_with('/') ? path.substr(0, path.size() - 1) : path, error);
  return error.value();
}

int FileOperations::Copy(const std::string& from, const std::string& to, mode_t mode,
                         std::string* sha256) {
  const Descriptor source(::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!source) return errno;
  struct stat status {};
  if (::fstat(source.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  const Descriptor target(
      ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateMode));
  if (!target) return errno;
  package::Sha256 sum;
  std::string buffer(256 * 1024, '\0');
  for (;;) {
    const ssize_t count = ::read(source.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    if (const int error = WriteAll(target.get(), bytes)) return error;
    sum.Add(bytes);
  }
  if (::fchmod(target.get(), mode) != 0) return errno;
  *sha256 = sum.Finish();
  return os::FlushWhollyToDisk(target.get());  // the mode, too
}

int FileOperations::Link(const std::string& from, const std::string& to) {
  return ResultOf(::link(from.c_str(), to.c_str()));
}

int FileOperations::Rename(const std::string& from, const std::string& to) {
  return ResultOf(::rename(from.c_str(), to.c_str()));
}

int FileOperations::Remove(const std::string& path) { return ResultOf(::unlink(path.c_str())); }

int FileOperations::SyncFolder(const std::string& path) {
  const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return errno;
  return os::FlushWhollyToDisk(folder.get());
}

int FileOperations::Write(const std::string& path, std::string_view content) {
  return WriteWholeFile(path.c_str(), content, kPrivateMode);
}

int FileOperations::StoreSettings(const std::string& file, std::span<const ProfileEntry> entries) {
  return WritePrivateProfileEntries(DEFAULT_SECTION, entries, file.c_str()) ? 0 : errno;
}

}  // namespace updater
