// An archive, opened, looked at and then extracted. Over minizip, which is named nowhere else.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

/// The rules are those of compress.h. Where a call returns false, errno and why() tell the reason.
/// Memory: the names, and one buffer for the bytes on their way.
class ZipReader {
 public:
  static constexpr std::uint64_t kMostBytes = std::uint64_t{2} * 1024 * 1024 * 1024;

  /// Opens an archive. False, without a reason, when nothing there is one.
  bool Open(const char* file);
  /// Reads and checks the list of all entries.
  bool ReadEntries();
  /// Writes them below `folder`, an absolute path without a "/" at its end, through no link that
  /// stands in the way there. Ends at the first failure.
  bool ExtractAll(const std::string& folder);

  const std::string& why() const { return why_; }

 private:
  struct Entry {
    std::string name;
    std::uint64_t size;
    unsigned long checksum;
    std::uint64_t place;  // in the list of entries
    std::uint64_t number;
    mode_t mode;
    bool isFolder() const { return name.ends_with('/'); }
  };
  struct Close {
    void operator()(void* archive) const;
  };

  bool ReadEntry(Entry* entry);
  bool Extract(const std::string& folder, const Entry& entry);
  bool CopyContent(int file, const Entry& entry);
  bool MakeFolders(const std::string& folder, const std::string& name);
  bool Fail(int error, std::string why);
  bool FailAt(int error, const std::string& name, const char* why);

  std::unique_ptr<void, Close> archive_;
  std::vector<Entry> entries_;
  std::unordered_set<std::string> folders_;  // that are known to be there
  std::vector<char> buffer_;
  std::string why_;
};
