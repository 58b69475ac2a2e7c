#include "manager/zip_names.h"

#include <algorithm>

#include "platform/ascii.h"

namespace {

/// Folders that only the names of others imply count, too: each costs as much as a file.
constexpr std::size_t kMostNodes = 2 * ZipNames::kMostEntries;
constexpr const char* kTwice = "is there twice, or differs from another only in case";
constexpr const char* kBoth = "is a folder and a file at once";

bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

/// Null for a path of plain parts, without the "/" at a folder's end.
const char* CheckPath(std::string_view path) {
  if (path.size() > ZipNames::kLongestName) return "has too long a name";
  if (ascii::HasControl(path)) return "has control characters in its name";
  if (path.find('\\') != path.npos) return "has a backslash in its name";
  if (path.starts_with('/')) return "has an absolute name";
  if (path.size() > 1 && path[1] == ':' && IsLetter(path[0])) return "names a drive";
  std::size_t levels = 0;
  for (std::size_t start = 0; start <= path.size(); ++levels) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string_view part = path.substr(start, end - start);
    if (part == "..") return "leads out of its folder";
    if (part.empty() || part == ".") return "has an empty part in its name";
    if (part.size() > ZipNames::kLongestPart) return "has too long a name";
    start = end + 1;
  }
  return levels > ZipNames::kMostLevels ? "lies too deep" : nullptr;
}

}  // namespace

const char* ZipNames::Add(std::string_view name) {
  const bool isFolder = name.ends_with('/') && name.size() > 1;
  const std::string_view path = isFolder ? name.substr(0, name.size() - 1) : name;
  if (const char* refusal = CheckPath(path)) return refusal;
  for (std::size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
    if (const char* refusal = AddFolder(path.substr(0, slash), false)) return refusal;
  }
  if (const char* refusal = isFolder ? AddFolder(path, true) : AddFile(path)) return refusal;
  return nodes_.size() > kMostNodes ? "is in one folder too many" : nullptr;
}

const char* ZipNames::AddFolder(std::string_view path, bool isListed) {
  const auto [at, isNew] =
      nodes_.try_emplace(ascii::Lower(path), Node{std::string(path), true, isListed});
  Node& node = at->second;
  if (isNew) return nullptr;
  if (!node.isFolder) return kBoth;
  if (node.spelling != path || (isListed && node.isListed)) return kTwice;
  node.isListed = node.isListed || isListed;
  return nullptr;
}

const char* ZipNames::AddFile(std::string_view path) {
  const auto [at, isNew] =
      nodes_.try_emplace(ascii::Lower(path), Node{std::string(path), false, true});
  if (isNew) return nullptr;
  return at->second.isFolder ? kBoth : kTwice;
}

std::string PrintableName(std::string_view name) {
  constexpr std::size_t kShown = 200;
  std::string printable(name.substr(0, kShown));
  std::replace_if(
      printable.begin(), printable.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
  return printable;
}
