// Open files: who closes them, reads and writes of whole files, and locks on them.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// Closes its descriptor at the end of its life and keeps errno while it does.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) noexcept : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() {
    if (value_ < 0) return;
    const int saved = errno;
    ::close(value_);
    errno = saved;
  }

  explicit operator bool() const { return value_ >= 0; }
  int get() const { return value_; }
  /// Gives the descriptor to the caller.
  int Release() { return std::exchange(value_, -1); }

 private:
  int value_;
};

/// Reads a file of any size into `content`. Returns 0, or an errno with `content` untouched; a
/// folder is EISDIR, a pipe or a device EINVAL.
int ReadWholeFile(const char* path, std::string* content);

/// What the system tells of a file's state. Every change of a regular file changes it, as long as
/// two changes do not share a tick of its file system's clock; see os::StampsChanges.
struct FileState {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = 0;
  std::time_t modified = 0;
  long modifiedNanoseconds = 0;
  std::time_t changed = 0;
  long changedNanoseconds = 0;

  bool operator==(const FileState&) const = default;
};

/// The state of the regular file that a path leads to; none for anything else.
std::optional<FileState> StateOf(const char* path);

/// A small file's content for the time of one look: read with one open and one read into memory of
/// its own, on the stack where it fits. An unreadable file is an empty one.
class FileView {
 public:
  FileView() = default;
  FileView(const FileView&) = delete;
  FileView& operator=(const FileView&) = delete;

  /// At most once.
  void Read(const char* path);
  std::string_view text() const { return text_; }
  /// The state in which the file was when the read began; none when it could not be read.
  const std::optional<FileState>& state() const { return state_; }
  /// Whether the file that was read is in that state now, so that the text is its whole content,
  /// and will leave the state with the next change.
  bool IsProven() const;

 private:
  static constexpr std::size_t kInlineBytes = 16 * 1024;
  Descriptor file_;
  std::optional<FileState> state_;
  char inline_[kInlineBytes];
  std::string large_;
  std::string_view text_;
};

/// Writes all of it to a descriptor. Returns 0 or an errno.
int WriteAll(int descriptor, std::string_view content);

/// The path that `path` leads to, links followed, also when nothing is there yet.
std::string FollowLinks(const char* path);

/// Whether a write returns only when the disk has the content, which takes milliseconds a file:
/// right for settings, too slow for thousands of files that could be made again.
enum class Flush { ToDisk, Later };

/// Replaces a file's content so that every other reader has either the old content or the new (and,
/// with Flush::ToDisk, so has the disk after a crash): a temporary file in the same folder, which
/// must be writable, is written and renamed. An existing file keeps its mode (and its owner and
/// group where rights allow), a link is followed, a file that the caller may not write and anything
/// that is no file is refused. Returns 0 or an errno; on failure the old file is as it was and no
/// temporary file stays. A writer that is killed in the act may leave one, ".<name>.replacement",
/// which the next write of the same file removes. Any thread and process may call, and none waits
/// for another: while something else has that name, a random one serves
/// (".<name>.<random>.replacement"), and the last of several writers to end is the one whose
/// content stays.
int WriteWholeFile(const char* path, std::string_view content, mode_t modeIfNew,
                   Flush flush = Flush::ToDisk);

/// The same with a file's content from its position on, piece by piece: memory does not grow with
/// the file.
int WriteWholeFile(const char* path, const Descriptor& content, mode_t modeIfNew, Flush flush);

/// Writes over a file that must be there, for a file whose folder may not be written: a reader may
/// see a part until this returns, and an end in between, or a failure, leaves a part. Returns 0 or
/// an errno.
int OverwriteFile(const char* path, std::string_view content);
/// The same with a file's content from its position on.
int OverwriteFile(const char* path, const Descriptor& content);
/// Whether what WriteWholeFile returned may mean that only the folder kept it from writing, so that
/// OverwriteFile can help.
bool MayBeTheFolder(int error);

/// The name of a file that belongs to another one and lies beside it: ".<name><ending>", where a
/// long name is cut.
std::string HiddenBeside(const std::string& path, std::string_view ending);

/// Opens a file for reading and tells its size. Returns 0, or an errno with both untouched; a
/// folder is EISDIR, a pipe or a device EINVAL.
int OpenWholeFile(const char* path, Descriptor* file, off_t* size);

/// Locks what is open as the descriptor against other descriptors of it, in this process and in
/// others, until it is closed. Returns 0; EWOULDBLOCK when somebody else held the lock until `end`
/// (anybody who may open a file may lock it, so no wait is without limit); another errno where
/// there are no locks.
int LockUntil(std::chrono::steady_clock::time_point end, int descriptor);
/// Whether a path names what is open as the descriptor. If it was removed or replaced meanwhile, a
/// lock on the descriptor keeps nobody away.
bool IsNamed(const char* path, int descriptor);

/// Opens a file that is there to be locked, made for its owner alone if it is missing and never
/// reached by a link, and locks it; the lock is that of the file which has the name in the end.
/// Returns 0 and the file, else what LockUntil does, or why it cannot be opened.
int OpenLocked(const std::string& path, std::chrono::steady_clock::time_point end,
               Descriptor* file);
