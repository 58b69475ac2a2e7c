#include "platform/file_content.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>

#include "platform/descriptor.h"
#include "platform/os.h"

namespace {

constexpr std::size_t kFirstRead = 16 * 1024;
constexpr std::size_t kNextRead = 256 * 1024;
constexpr mode_t kModeBits = 07777;

ssize_t Read(int descriptor, char* target, std::size_t room) {
  ssize_t count = 0;
  while ((count = ::read(descriptor, target, room)) < 0 && errno == EINTR) {
  }
  return count;
}

/// Reads a file into `first`, or into `large` when it does not fit there; `text` is what was read.
/// Not waiting for writers keeps a pipe in place of a settings file from stopping the service.
int ReadContent(const char* path, char (&first)[kFirstRead], std::string* large,
                std::string_view* text) {
  if (path == nullptr) return EINVAL;
  const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return errno;
  ssize_t count = Read(file.get(), first, sizeof first);
  if (count < 0) return errno;
  *text = {first, static_cast<std::size_t>(count)};
  if (text->size() < sizeof first) return 0;

  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  try {
    large->reserve(static_cast<std::size_t>(status.st_size) + kNextRead);
    large->assign(*text);
    while (count > 0) {
      const std::size_t end = large->size();
      large->resize(end + kNextRead);
      count = Read(file.get(), large->data() + end, kNextRead);
      if (count < 0) return errno;
      large->resize(end + static_cast<std::size_t>(count));
    }
  } catch (const std::exception&) {
    return ENOMEM;
  }
  *text = *large;
  return 0;
}

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

int Lock(int descriptor) {
  while (::flock(descriptor, LOCK_EX) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

/// The new content on its way to its place. Its name belongs to the target, and its writer holds a
/// lock on it: writers of one target take turns, and a file that can be locked while its name still
/// stands was left behind by a writer that was killed, and is removed. So at most one such file
/// ever lies beside a target, until the next write.
class Replacement {
 public:
  explicit Replacement(const std::string& target) : target_(target) {
    const std::size_t name = target.rfind('/') + 1;  // 0 when there is no '/'
    path_ = target.substr(0, name) + "." + target.substr(name, kNameLength) + ".replacement";
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (file_) ::unlink(path_.c_str());  // while the lock is held: nobody else has this name
  }

  int Open(mode_t mode) {
    for (;;) {
      const int create = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
      Descriptor created(::open(path_.c_str(), create, mode));
      if (created) {
        Lock(created.get());  // without locks on this file system, being the creator must do
        if (!HasName(created.get())) continue;
        file_ = std::move(created);
        return 0;
      }
      if (errno != EEXIST) return errno;
      if (const int error = WaitForOther()) return error;
    }
  }

  int descriptor() const { return file_.get(); }

  int MoveToTarget() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) return errno;
    file_ = Descriptor();
    return 0;
  }

 private:
  /// Leaves room for what is added below the usual limit of 255; targets whose names agree in so
  /// many characters merely take turns with each other.
  static constexpr std::size_t kNameLength = 200;

  bool HasName(int descriptor) const {
    struct stat open {};
    struct stat named {};
    return ::fstat(descriptor, &open) == 0 && ::lstat(path_.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
  }

  int WaitForOther() const {
    const Descriptor other(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!other) return errno == ENOENT ? 0 : errno;
    if (const int error = Lock(other.get())) return error;
    if (HasName(other.get()) && ::unlink(path_.c_str()) != 0) return errno;
    return 0;
  }

  std::string target_;
  std::string path_;
  Descriptor file_;
};

/// Gives the new file the old one's owner, where rights allow, and mode; in this order, because a
/// change of owner may clear bits of the mode.
int TakeOver(int descriptor, const struct stat& old) {
  struct stat now {};
  if (::fstat(descriptor, &now) != 0) return errno;
  if ((now.st_uid != old.st_uid || now.st_gid != old.st_gid) &&
      ::fchown(descriptor, old.st_uid, old.st_gid) != 0 && errno != EPERM) {
    return errno;
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

}  // namespace

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
  char first[kFirstRead];
  std::string large;
  std::string_view text;
  if (const int error = ReadContent(path, first, &large, &text)) return error;
  if (large.empty()) {
    content->assign(text);
  } else {
    *content = std::move(large);
  }
  return 0;
}

FileView::FileView(const char* path) {
  static_assert(kInlineBytes == kFirstRead);
  if (ReadContent(path, inline_, &large_, &text_) != 0) text_ = {};
}

int WriteWholeFile(const char* path, std::string_view content, mode_t modeIfNew) {
  if (path == nullptr) return EINVAL;
  const std::string target = FollowLinks(path);
  struct stat old {};
  const int found = CheckOld(target, &old);
  if (found != 0 && found != ENOENT) return found;
  const bool replaces = found == 0;

  Replacement replacement(target);
  if (const int error = replacement.Open(replaces ? S_IRUSR | S_IWUSR : modeIfNew)) return error;
  const int file = replacement.descriptor();
  if (const int error = WriteAll(file, content)) return error;
  if (replaces) {
    if (const int error = TakeOver(file, old)) return error;
  }
  if (const int error = os::FlushToDisk(file)) return error;
  return replacement.MoveToTarget();
}
