// Whole-file reads in one go and whole-file writes in one step: the two ways in which settings,
// copies and generated files reach the disk.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/descriptor.h"

/// Reads a file of any size into `content`. Returns 0, or an errno with `content` untouched; a
/// folder is EISDIR, a pipe or a device EINVAL.
int ReadWholeFile(const char* path, std::string* content);

/// A small file's content for the time of one look: read with one open and one read into memory of
/// its own, on the stack where it fits. An unreadable file is an empty one.
class FileView {
 public:
  explicit FileView(const char* path);
  FileView(const FileView&) = delete;
  FileView& operator=(const FileView&) = delete;
  std::string_view text() const { return text_; }

 private:
  static constexpr std::size_t kInlineBytes = 16 * 1024;
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
/// must be writable, is written and renamed. An existing file keeps its mode (and its owner where
/// rights allow), a link is followed, a file that the caller may not write and anything that is no
/// file is refused. Returns 0 or an errno; on failure the old file is as it was and no temporary
/// file stays. A writer that is killed in the act may leave one, ".<name>.replacement", which the
/// next write of the same file removes; so at most one lies beside a file, ever. Any thread and
/// process may call; writers of one file take turns. A writer that cannot have that name within a
/// second, because of something that it cannot lock or remove, uses a random one beside it.
int WriteWholeFile(const char* path, std::string_view content, mode_t modeIfNew,
                   Flush flush = Flush::ToDisk);

/// The same with a file's content from its position on, piece by piece: memory does not grow with
/// the file.
int WriteWholeFile(const char* path, const Descriptor& content, mode_t modeIfNew, Flush flush);

/// Opens a file for reading and tells its size. Returns 0, or an errno with both untouched; a
/// folder is EISDIR, a pipe or a device EINVAL.
int OpenWholeFile(const char* path, Descriptor* file, off_t* size);
