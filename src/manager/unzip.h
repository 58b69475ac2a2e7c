// Unpacking of zip archives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// A name fit for an error text and the log: the first 200 bytes, of which those that are no
/// printable ASCII become '?'.
std::string PrintableName(std::string_view name);

/// Unpacks an archive and tells in words why it could not. What an archive says of itself is not
/// believed: its names, kinds and declared sizes are all looked at before the first file is
/// written, and sizes and checksums again while it is.
///
/// Refused are names that would lead out of the folder or hide one another, links,
/// encrypted entries, and archives that hold nothing or more than the two bounds below.
/// Stored and deflated entries are known. Names are taken as the bytes that they are. Of an entry's
/// mode only the right to execute is kept. One thread at a time.
class Compress {
 public:
  static constexpr std::size_t kMostEntries = 20'000;
  static constexpr std::uint64_t kMostBytes = std::uint64_t{2} * 1024 * 1024 * 1024;

  /// Unpacks all entries with their paths into `folder`, which is made if it is missing, replacing
  /// what is there. Returns false, with errno and the description set, when anything failed; files
  /// that were written before stay. The folder becomes the process's current one and stays it, but
  /// no path depends on that.
  bool Unzip(const char* zipFile, const char* folder);
  /// Why the last Unzip failed, "" if it did not.
  const char* GetErrorDescription() const { return description_; }
  /// False when the last Unzip failed because the file is no zip archive.
  bool IsArchive() const { return isArchive_; }

 private:
  bool Fail(int error, const char* format, ...) __attribute__((format(printf, 3, 4)));

  char description_[1024] = "";
  bool isArchive_ = true;
};
