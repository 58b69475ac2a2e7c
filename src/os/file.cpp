#include "os/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>

#include "os/system.h"
#include "os/text.h"

namespace {

constexpr std::size_t kLeastRead = 16 * 1024;
constexpr std::size_t kMostRead = 256 * 1024;
constexpr mode_t kModeBits = 07777;
constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

/// Not waiting for writers keeps a pipe in place of a settings file from stopping the service.
Descriptor OpenForReading(const char* path) {
  return Descriptor(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

ssize_t ReadSome(int descriptor, char* target, std::size_t room) {
  ssize_t count = 0;
  while ((count = ::read(descriptor, target, room)) < 0 && errno == EINTR) {
  }
  return count;
}

std::optional<FileState> StateIn(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  const std::timespec modified = os::ModificationTime(status);
  const std::timespec changed = os::ChangeTime(status);
  return FileState{status.st_dev,    status.st_ino,  status.st_size, modified.tv_sec,
                   modified.tv_nsec, changed.tv_sec, changed.tv_nsec};
}

std::optional<FileState> StateNow(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return std::nullopt;
  return StateIn(status);
}

/// The size of an open regular file. Returns 0 or an errno.
int SizeOf(int descriptor, off_t* size) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  *size = status.st_size;
  return 0;
}

/// Runs `work`, which returns an errno, and returns ENOMEM where it has no memory.
template <class Work>
int WithinMemory(Work work) {
  try {
    return work();
  } catch (const std::exception&) {
    return ENOMEM;
  }
}

/// Appends a file's content from its position to its end, which a read of nothing tells, not a
/// short one. Returns 0 or an errno.
int ReadToEnd(int descriptor, std::string* content) {
  off_t fileSize = 0;
  if (const int error = SizeOf(descriptor, &fileSize)) return error;
  const auto size = static_cast<std::size_t>(fileSize);
  return WithinMemory([&] {
    content->reserve(size + kLeastRead);
    for (;;) {
      const std::size_t end = content->size();
      const std::size_t room = std::clamp(size > end ? size - end : 0, kLeastRead, kMostRead);
      content->resize(end + room);
      const ssize_t count = ReadSome(descriptor, content->data() + end, room);
      if (count < 0) return errno;
      content->resize(end + static_cast<std::size_t>(count));
      if (count == 0) return 0;
    }
  });
}

int CopyRest(int source, int target) {
  const auto buffer = std::make_unique<char[]>(kMostRead);
  ssize_t count = 0;
  while ((count = ReadSome(source, buffer.get(), kMostRead)) > 0) {
    const std::string_view part(buffer.get(), static_cast<std::size_t>(count));
    if (const int error = WriteAll(target, part)) return error;
  }
  return count < 0 ? errno : 0;
}

/// The start of a name, cut where a UTF-8 character begins: some file systems refuse other names.
std::string_view Start(std::string_view name, std::size_t length) {
  if (name.size() <= length) return name;
  while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80) --length;
  return name.substr(0, length);
}

/// The new content on its way to its place. Its name belongs to the target, and its writer holds a
/// lock on it: a file that can be locked while its name still stands was left behind by a writer
/// that was killed. Nobody waits: where something has that name, left-behind files go first, and
/// where it still cannot be had, a name that nobody else knows serves.
class Replacement {
 public:
  explicit Replacement(const std::string& target)
      : target_(target), path_(HiddenBeside(target, kEnding)) {}
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (file_) ::unlink(path_.c_str());  // while the lock is held: nobody else has this name
  }

  int Open(mode_t mode) {
    // A walk of another writer may remove a file between its creation and its lock.
    constexpr int kMostTries = 8;
    int error = Create(mode);
    if (error == EEXIST && RemoveLeftBehind()) error = Create(mode);
    for (int i = 0; error == EEXIST && i < kMostTries; ++i) {
      path_ = HiddenBeside(target_, std::string(".") + MakeIdentifier().data() + kEnding);
      error = Create(mode);
    }
    return error;
  }

  int descriptor() const { return file_.get(); }

  int MoveToTarget() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) return errno;
    file_ = Descriptor();
    return 0;
  }

 private:
  static constexpr const char* kEnding = ".replacement";
  static constexpr std::chrono::steady_clock::time_point kNow{};

  /// Returns 0, EEXIST when the name is another's, or another errno.
  int Create(mode_t mode) {
    Descriptor file(
        ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file) return errno;
    // Without locks on this file system, being the creator must do.
    if (LockUntil(kNow, file.get()) == EWOULDBLOCK || !IsNamed(path_.c_str(), file.get())) {
      return EEXIST;
    }
    file_ = std::move(file);
    return 0;
  }

  /// Removes all that writers of the target left behind. False when it is another account's file
  /// that has the name; then there is no walk, which that account could make long.
  bool RemoveLeftBehind() const {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) != 0) return errno == ENOENT;
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) return false;
    const std::string folder = path_.substr(0, path_.rfind('/') + 1);
    const std::string start = HiddenBeside(target_, "").substr(folder.size());
    std::error_code error;
    std::filesystem::directory_iterator entry(folder.empty() ? "." : folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
      const std::string name = entry->path().filename().string();
      if (name.starts_with(start) && name.ends_with(kEnding)) RemoveIfLeftBehind(folder + name);
    }
    return true;
  }

  static void RemoveIfLeftBehind(const std::string& path) {
    const Descriptor other(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!other || ::fstat(other.get(), &status) != 0 || status.st_uid != ::geteuid()) return;
    if (LockUntil(kNow, other.get()) == 0 && IsNamed(path.c_str(), other.get())) {
      ::unlink(path.c_str());
    }
  }

  std::string target_;
  std::string path_;
  Descriptor file_;
};

/// Gives the new file the old one's owner and group, where rights allow, and mode; in this order,
/// because a change of owner may clear bits of the mode.
int TakeOver(int descriptor, const struct stat& old) {
  constexpr uid_t kSameOwner = static_cast<uid_t>(-1);
  struct stat now {};
  if (::fstat(descriptor, &now) != 0) return errno;
  if (now.st_uid != old.st_uid || now.st_gid != old.st_gid) {
    // Only root may give a file away; its owner may give it to any group of their own. EINVAL: the
    // group is none of this user namespace.
    if (::fchown(descriptor, old.st_uid, old.st_gid) != 0 &&
        ::fchown(descriptor, kSameOwner, old.st_gid) != 0 && errno != EPERM && errno != EINVAL) {
      return errno;
    }
  }
  return ::fchmod(descriptor, old.st_mode & kModeBits) == 0 ? 0 : errno;
}

/// 0 when a regular file that may be written stands there, ENOENT for nothing, else the refusal.
int CheckOld(const std::string& target, struct stat* old) {
  if (::stat(target.c_str(), old) != 0) return errno;
  if (S_ISDIR(old->st_mode)) return EISDIR;
  if (!S_ISREG(old->st_mode)) return EINVAL;
  return ::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0 ? 0 : errno;
}

/// The one way in which a file is replaced; `write` fills a descriptor and returns 0 or an errno.
template <class Write>
int Replace(const char* path, mode_t modeIfNew, Flush flush, Write write) {
  const std::string target = FollowLinks(path);
  struct stat old {};
  const int found = CheckOld(target, &old);
  if (found != 0 && found != ENOENT) return found;
  const bool replaces = found == 0;

  Replacement replacement(target);
  if (const int error = replacement.Open(replaces ? kPrivate : modeIfNew)) return error;
  const int file = replacement.descriptor();
  // Until all of it is there, it is its writer's alone. What the process's mask leaves of a new
  // file's mode is known only after the file was made with it.
  struct stat made {};
  if (::fstat(file, &made) != 0) return errno;
  ::fchmod(file, kPrivate);  // where the file system has modes
  if (const int error = write(file)) return error;
  if (flush == Flush::ToDisk) {
    if (const int error = os::FlushToDisk(file)) return error;
  }
  if (const int error = TakeOver(file, replaces ? old : made)) return error;
  return replacement.MoveToTarget();
}

/// Writes from the start of a file that is there, and cuts it behind that.
template <class Write>
int Overwrite(const char* path, Write write) {
  if (path == nullptr) return EINVAL;
  const Descriptor file(::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) return errno;
  off_t size = 0;
  if (const int error = SizeOf(file.get(), &size)) return error;
  if (const int error = write(file.get())) return error;
  const off_t end = ::lseek(file.get(), 0, SEEK_CUR);
  if (end < 0 || ::ftruncate(file.get(), end) != 0) return errno;
  return os::FlushToDisk(file.get());
}

}  // namespace

int WriteAll(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = ::write(descriptor, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return EIO;
    content.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

std::string FollowLinks(const char* path) {
  constexpr int kMaxLinks = 40;
  std::string name = path;
  for (int i = 0; i < kMaxLinks; ++i) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(name.c_str(), nullptr),
                                                           &std::free);
    if (real) return real.get();
    // Nothing there yet; a link may still tell where it is to be.
    std::error_code error;
    const std::filesystem::path link = std::filesystem::read_symlink(name, error);
    if (error) return name;
    name = (std::filesystem::path(name).parent_path() / link).string();
  }
  return name;
}

int ReadWholeFile(const char* path, std::string* content) {
  if (path == nullptr) return EINVAL;
  const Descriptor file = OpenForReading(path);
  if (!file) return errno;
  std::string read;
  if (const int error = ReadToEnd(file.get(), &read)) return error;
  *content = std::move(read);
  return 0;
}

std::optional<FileState> StateOf(const char* path) {
  struct stat status {};
  if (path == nullptr || ::stat(path, &status) != 0) return std::nullopt;
  return StateIn(status);
}

void FileView::Read(const char* path) {
  file_ = path != nullptr ? OpenForReading(path) : Descriptor();
  if (!file_) return;
  state_ = StateNow(file_.get());
  const ssize_t count = ReadSome(file_.get(), inline_, sizeof inline_);
  if (count < 0) {
    state_.reset();
    return;
  }
  text_ = {inline_, static_cast<std::size_t>(count)};
  if (text_.size() < sizeof inline_) return;  // so short a read is the end of a file on a disk
  text_ = {};
  if (::lseek(file_.get(), 0, SEEK_SET) == 0 && ReadToEnd(file_.get(), &large_) == 0) {
    text_ = large_;
  } else {
    state_.reset();
  }
}

bool FileView::IsProven() const {
  return state_ && static_cast<off_t>(text_.size()) == state_->size &&
         StateNow(file_.get()) == state_ && os::StampsChanges(file_.get());
}

int OpenWholeFile(const char* path, Descriptor* file, off_t* size) {
  if (path == nullptr) return EINVAL;
  Descriptor opened = OpenForReading(path);
  if (!opened) return errno;
  if (const int error = SizeOf(opened.get(), size)) return error;
  *file = std::move(opened);
  return 0;
}

int WriteWholeFile(const char* path, std::string_view content, mode_t modeIfNew, Flush flush) {
  if (path == nullptr) return EINVAL;
  return WithinMemory([&] {
    return Replace(path, modeIfNew, flush, [&](int file) { return WriteAll(file, content); });
  });
}

int WriteWholeFile(const char* path, const Descriptor& content, mode_t modeIfNew, Flush flush) {
  if (path == nullptr) return EINVAL;
  return WithinMemory([&] {
    return Replace(path, modeIfNew, flush, [&](int file) { return CopyRest(content.get(), file); });
  });
}

int OverwriteFile(const char* path, std::string_view content) {
  return Overwrite(path, [&](int file) { return WriteAll(file, content); });
}

int OverwriteFile(const char* path, const Descriptor& content) {
  return WithinMemory(
      [&] { return Overwrite(path, [&](int file) { return CopyRest(content.get(), file); }); });
}

bool MayBeTheFolder(int error) {
  // EPERM: a folder whose files only their owners may replace. EBUSY: a file that is a mount point.
  return error == EACCES || error == EPERM || error == EBUSY || error == EROFS;
}

std::string HiddenBeside(const std::string& path, std::string_view ending) {
  // Leaves room for the ending below the usual limit of 255. Files whose names agree in so many
  // characters merely share what belongs to them.
  constexpr std::size_t kNameLength = 180;
  const std::size_t name = path.rfind('/') + 1;  // 0 when there is no '/'
  std::string hidden = path.substr(0, name) + ".";
  hidden += Start(std::string_view(path).substr(name), kNameLength);
  return hidden += ending;
}

int LockUntil(std::chrono::steady_clock::time_point end, int descriptor) {
  // Short, or a writer that asks now and then would find no gap between those of a busy one.
  constexpr std::chrono::microseconds kPause(250);
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return errno;
    if (std::chrono::steady_clock::now() >= end) return EWOULDBLOCK;
    std::this_thread::sleep_for(kPause);
  }
  return 0;
}

bool IsNamed(const char* path, int descriptor) {
  struct stat open {};
  struct stat named {};
  return ::fstat(descriptor, &open) == 0 && ::lstat(path, &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

int OpenLocked(const std::string& path, std::chrono::steady_clock::time_point end,
               Descriptor* file) {
  do {
    Descriptor opened(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (!opened) return errno;
    if (const int error = LockUntil(end, opened.get())) return error;
    if (IsNamed(path.c_str(), opened.get())) {
      *file = std::move(opened);
      return 0;
    }
  } while (std::chrono::steady_clock::now() < end);
  return ENOENT;
}
