// The names in an archive, each looked at before the first file of it is written.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

/// Refuses what would lead out of a folder, could not be told apart on every file system, or would
/// cost more than an archive may. Nothing is ever put right: a name that is not plain comes from
/// no tool that packs for this service.
class ZipNames {
 public:
  static constexpr std::size_t kMostEntries = 20'000;
  static constexpr std::size_t kLongestName = 800;  ///< leaves room in 1,023 for the folder
  static constexpr std::size_t kLongestPart = 255;  ///< what file systems take
  static constexpr std::size_t kMostLevels = 32;    ///< each costs an open folder to remove

  /// Takes the next name as it is stored; that of a folder ends in "/". Returns null, or why it is
  /// refused.
  const char* Add(std::string_view name);

 private:
  struct Node {
    std::string spelling;
    bool isFolder;
    bool isListed;  // by an entry of its own, not only as the folder of another
  };

  const char* AddFolder(std::string_view path, bool isListed);
  const char* AddFile(std::string_view path);

  std::unordered_map<std::string, Node> nodes_;  // by the path in lower case
};

/// A name fit for an error text and the log: what is not printable ASCII becomes '?'.
std::string PrintableName(std::string_view name);
