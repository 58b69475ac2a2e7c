#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/folder.h"
#include "platform/folder_walk.h"
#include "platform/ini_file.h"
#include "util/cutil.h"

namespace {

bool Exists(const std::string& path) { return GetFileAttributes(path.c_str()) != -1; }

// The paths are only for the lines that tell where the walk is.
bool DeleteContent(FolderWalk& folder, const std::string& path) {
  while (const char* entry = folder.Next()) {
    const std::string entryPath = path + "/" + entry;
    struct stat status {};
    if (!folder.Status(entry, &status)) std::perror(entryPath.c_str());
    if (S_ISDIR(status.st_mode)) {
      std::printf("%s directory\n", entryPath.c_str());
      FolderWalk subfolder(folder, entry);
      if (!DeleteContent(subfolder, entryPath) || !subfolder.RemoveSelf()) return false;
    } else {
      std::printf("%s file\n", entryPath.c_str());
      SetFileAttributes(entryPath.c_str(), FILE_ATTRIBUTE_NORMAL);
      if (!folder.RemoveFile(entry)) return false;
    }
  }
  return true;
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
  std::string name = path;
  RTrim(name, "\\");
  RTrim(name, "/");
  FolderWalk folder(name.c_str());
  return DeleteContent(folder, name) && (!removeSelf || std::remove(name.c_str()) == 0);
}

bool CUtil::CopyDirectoryFiles(const char* src, const char* dst, bool recursive) {
  std::string from = src;
  std::string to = dst;
  RTrim(from, "/");
  RTrim(to, "/");
  FolderWalk folder(from.c_str());
  bool result = true;
  while (const char* entry = folder.Next()) {
    const std::string source = from + "/" + entry;
    const std::string target = to + "/" + entry;
    struct stat status;
    if (::stat(source.c_str(), &status) != 0) continue;
    const bool isFolder = S_ISDIR(status.st_mode);
    // A link to a folder may lead back above itself: each round of such a loop would be copied.
    if (isFolder && !(recursive && folder.IsFolder(entry))) continue;
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
  if (path == nullptr) return offset == 0 ? kNoPath : kNotWritten;
  CUtil::CreateDirectory(path, true);
  const FileHandle file = QVCreateFile(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                       offset == 0 ? CREATE_ALWAYS : OPEN_EXISTING, 0, nullptr);
  if (file == nullptr) return kNotWritten;
  if (offset != 0 && std::fseek(file, static_cast<long>(offset), SEEK_SET) != 0) {
    QVCloseFile(file);
    return kNotWritten;
  }
  DWORD written = 0;
  const bool allWritten = len == 0 || WriteFile(file, data, len, &written, nullptr) != 0;
  // What the stream still holds reaches the file only now: a full disk may show as late as this.
  const bool closed = QVCloseFile(file) != 0;
  if (allWritten && closed) return 0;
  DeleteFile(path);
  return kNotWritten;
}
