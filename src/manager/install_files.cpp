#include "manager/install_files.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "platform/descriptor.h"
#include "platform/file.h"
#include "platform/file_content.h"
#include "util/cutil.h"

namespace fs = std::filesystem;

namespace {

constexpr mode_t kNewFileMode = 0777;  // what CopyFile gives

struct Pair {
  std::string source, target;
};

std::vector<Pair> FilesBelow(const std::string& from, const std::string& to) {
  std::vector<Pair> files;
  for (const auto& entry : fs::recursive_directory_iterator(from)) {
    if (!entry.is_regular_file()) continue;
    files.push_back({entry.path(), fs::path(to) / entry.path().lexically_relative(from)});
  }
  return files;
}

/// An empty file counts for CopyFile as one that cannot be copied.
bool InstallEmpty(const Pair& file) {
  CUtil::CreateDirectory(file.target.c_str(), true);
  if (const int error = WriteWholeFile(file.target.c_str(), "", kNewFileMode, Flush::Later)) {
    errno = error;
    return false;
  }
  return DeleteFile(file.source.c_str()) != 0;
}

bool HaveSameContent(const Pair& files) {
  constexpr std::size_t kPiece = 64 * 1024;
  Descriptor source;
  Descriptor target;
  off_t sizes[2] = {};
  if (OpenWholeFile(files.source.c_str(), &source, &sizes[0]) != 0 ||
      OpenWholeFile(files.target.c_str(), &target, &sizes[1]) != 0 || sizes[0] != sizes[1]) {
    return false;
  }
  std::vector<char> pieces[2] = {std::vector<char>(kPiece), std::vector<char>(kPiece)};
  for (;;) {
    const ssize_t count = ::read(source.get(), pieces[0].data(), kPiece);
    if (count != ::read(target.get(), pieces[1].data(), kPiece) || count < 0) return false;
    if (count == 0) return true;
    if (std::memcmp(pieces[0].data(), pieces[1].data(), static_cast<std::size_t>(count)) != 0) {
      return false;
    }
  }
}

bool Install(const std::string& from, const std::string& to) {
  std::vector<Pair> filled;
  for (Pair& file : FilesBelow(from, to)) {
    if (!fs::is_empty(file.source)) {
      filled.push_back(std::move(file));
    } else if (!InstallEmpty(file)) {
      return false;
    }
  }
  if (!CUtil::CopyDirectoryFiles(from.c_str(), to.c_str(), true)) return false;
  // That was the result of the last file alone: one before it may have found the disk full. Trying
  // again tells why.
  return std::all_of(filled.begin(), filled.end(), [](const Pair& file) {
    return HaveSameContent(file) || CopyFile(file.source.c_str(), file.target.c_str(), 0) != 0;
  });
}

}  // namespace

bool InstallFiles(const std::string& from, const std::string& to) {
  try {
    return Install(from, to);
  } catch (const fs::filesystem_error& problem) {
    errno = problem.code().value();
    return false;
  }
}
