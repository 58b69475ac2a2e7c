#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/folder.h"
#include "util/cutil.h"

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};
using FolderHandle = std::unique_ptr<DIR, CloseFolder>;

bool IsOwnOrParent(std::string_view name) { return name == "." || name == ".."; }

std::string WithoutTrailing(std::string path, char ch) {
  while (!path.empty() && path.back() == ch) path.pop_back();
  return path;
}

bool Exists(const std::string& path) { return GetFileAttributes(path.c_str()) != -1; }

// Opens a folder for deleting what is in it. A link to a folder is not one: what it points to
// belongs to somebody else.
FolderHandle OpenOwnFolder(const std::string& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return nullptr;
  return FolderHandle(::opendir(path.c_str()));
}

bool DeleteEntry(const std::string& entry) {
  struct stat status = {};
  if (::lstat(entry.c_str(), &status) != 0) std::perror(entry.c_str());
  if (S_ISDIR(status.st_mode)) {
    std::printf("%s directory\n", entry.c_str());
    return CUtil::DeleteDirectory(entry.c_str(), true);
  }
  std::printf("%s file\n", entry.c_str());
  SetFileAttributes(entry.c_str(), FILE_ATTRIBUTE_NORMAL);
  return DeleteFile(entry.c_str()) != 0;
}

}  // namespace

BOOL CUtil::CreateDirectory(const char* path, bool) {
  const std::string_view whole(path);
  const auto last = whole.rfind('/');
  if (last == std::string_view::npos) return 1;
  const std::string parent(whole.substr(0, last + 1));
  if (Exists(parent)) return 1;
  for (auto slash = parent.find('/', 1); slash != std::string::npos;
       slash = parent.find('/', slash + 1)) {
    const std::string prefix = parent.substr(0, slash);
    // Somebody else may make the same folder at the same moment.
    if (!Exists(prefix) && !::CreateDirectory(prefix.c_str(), nullptr) && !Exists(prefix)) return 0;
  }
  return Exists(parent) || ::CreateDirectory(parent.c_str(), nullptr);
}

bool CUtil::DeleteDirectory(const char* path, bool removeSelf) {
  const std::string folder = WithoutTrailing(path, '\\');
  const std::string unslashed = WithoutTrailing(folder, '/');
  const FolderHandle handle = OpenOwnFolder(unslashed.empty() ? folder : unslashed);
  if (handle == nullptr) return !removeSelf || std::remove(unslashed.c_str()) == 0;
  while (const dirent* entry = ::readdir(handle.get())) {
    if (IsOwnOrParent(entry->d_name)) continue;
    if (!DeleteEntry(unslashed + "/" + entry->d_name)) return false;
  }
  return !removeSelf || std::remove(folder.c_str()) == 0;
}

bool CUtil::CopyDirectoryFiles(const char* src, const char* dst, bool recursive) {
  const std::string from = WithoutTrailing(src, '/');
  const std::string to = WithoutTrailing(dst, '/');
  const FolderHandle handle(::opendir(from.c_str()));
  if (handle == nullptr) return true;
  bool result = true;
  while (const dirent* entry = ::readdir(handle.get())) {
    if (IsOwnOrParent(entry->d_name)) continue;
    const std::string source = from + "/" + entry->d_name;
    const std::string target = to + "/" + entry->d_name;
    struct stat status;
    if (::stat(source.c_str(), &status) != 0) continue;
    const bool isFolder = S_ISDIR(status.st_mode);
    if (isFolder && !recursive) continue;
    if (!CUtil::CreateDirectory(target.c_str(), true)) return false;
    if (!isFolder) {
      result = CopyFile(source.c_str(), target.c_str(), 1) != 0;
    } else if (!CopyDirectoryFiles(source.c_str(), target.c_str(), true)) {
      return false;
    }
  }
  return result;
}

int CUtil::SaveDataToFileInner(const char* path, const unsigned char* data, unsigned int len,
                               unsigned int offset) {
  constexpr int kNotWritten = 16;
  constexpr int kNoPath = 22;
  if (offset == 0) {
    if (path == nullptr) return kNoPath;
    if (const int found = GetFileAttributes(path); found != -1) {
      const DWORD attributes = static_cast<DWORD>(found);
      const bool readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
      if (!SetFileAttributes(path, readOnly ? FILE_ATTRIBUTE_NORMAL : attributes)) return kNoPath;
    }
  }
  if (path == nullptr) return kNotWritten;
  CUtil::CreateDirectory(path, true);
  const FileHandle file = QVCreateFile(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                       offset == 0 ? CREATE_ALWAYS : OPEN_EXISTING, 0, nullptr);
  if (file == nullptr) return kNotWritten;
  if (offset != 0) std::fseek(file, static_cast<long>(offset), SEEK_SET);
  DWORD written = 0;
  const bool allWritten = len == 0 || WriteFile(file, data, len, &written, nullptr) != 0;
  // What the stream still holds reaches the file only now: a full disk may show as late as this.
  const bool closed = QVCloseFile(file) != 0;
  if (allWritten && closed) return 0;
  DeleteFile(path);
  return kNotWritten;
}
