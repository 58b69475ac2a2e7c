#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "os/file.h"
#include "os/folder.h"
#include "os/system.h"
#include "platform/ini_file.h"
#include "platform/system_time.h"

namespace {

constexpr mode_t kCreatedFileMode = 0666;
constexpr mode_t kCopiedFileMode = 0777;
constexpr DWORD kNoLimit = 0xFFFFFFFF;

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// A folder can be opened for reading, but it is no file; nor is a pipe, for whose other end the
/// open, or later a read, could wait for ever.
Descriptor OpenFile(const char* name, int flags) {
  if (name == nullptr) return Descriptor();
  Descriptor file(::open(name, flags | O_NONBLOCK | O_CLOEXEC, kCreatedFileMode));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return Descriptor();
  if (S_ISDIR(status.st_mode) || S_ISFIFO(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return Descriptor();
  }
  if (::fcntl(file.get(), F_SETFL, flags) != 0) return Descriptor();
  return file;
}

Stream OpenStream(const char* name, int flags, const char* mode) {
  Descriptor file = OpenFile(name, flags);
  if (!file) return nullptr;
  Stream stream(::fdopen(file.get(), mode));
  if (stream) file.Release();
  return stream;
}

/// The size of the file, -1 when it has none; the position stays.
off_t Size(FileHandle file) {
  const off_t position = ::ftello(file);
  if (position < 0 || ::fseeko(file, 0, SEEK_END) != 0) return -1;
  const off_t size = ::ftello(file);
  return ::fseeko(file, position, SEEK_SET) == 0 ? size : -1;
}

constexpr mode_t kFolderMode = 0777;
constexpr std::size_t kMaxPath = 1023;

/// The rules of RemoveDir.
bool Remove(FolderWalk folder) {
  if (!folder) return false;
  while (const char* entry = folder.Next()) {
    if (folder.IsFolder(entry)) {
      if (Remove(FolderWalk(folder, entry))) return true;  // the early end that callers know
    } else if (!folder.RemoveFile(entry)) {
      return false;
    }
  }
  return folder.RemoveSelf();
}

bool LastChangedOnEarlierDay(const _SYSTEMTIME& changed, const _SYSTEMTIME& today) {
  if (today.wYear != changed.wYear) return today.wYear > changed.wYear;
  if (today.wMonth != changed.wMonth) return today.wMonth > changed.wMonth;
  return today.wDay - changed.wDay >= 2;
}

}  // namespace

FileHandle CreateFile(const char* name, DWORD access, DWORD, void*, DWORD disposition, DWORD,
                      void*) {
  const bool write = (access & GENERIC_WRITE) != 0;
  const int direction = write ? O_RDWR : O_RDONLY;
  // Making and truncating need the right to write, also when the file is then only read: hence
  // one open for the disposition and one for the work.
  int preparation = direction;
  if (disposition == OPEN_ALWAYS) preparation = O_WRONLY | O_CREAT;
  if (disposition != OPEN_ALWAYS && disposition != OPEN_EXISTING) {
    preparation = O_WRONLY | O_CREAT | O_TRUNC;
  }
  if (!OpenFile(name, preparation)) return nullptr;
  return OpenStream(name, direction, write ? "r+b" : "rb").release();
}

FileHandle QVCreateFile(const char* name, DWORD access, DWORD share, void* security,
                        DWORD disposition, DWORD flags, void* templateFile) {
  return CreateFile(name, access, share, security, disposition, flags, templateFile);
}

BOOL CloseFile(FileHandle file) { return file == nullptr || std::fclose(file) == 0; }

BOOL QVCloseFile(FileHandle file) { return CloseFile(file); }

BOOL ReadFile(FileHandle file, void* buffer, DWORD count, DWORD* read, void*) {
  const std::size_t got = file != nullptr ? std::fread(buffer, 1, count, file) : 0;
  if (read != nullptr) *read = static_cast<DWORD>(got);
  return file != nullptr && std::ferror(file) == 0;
}

BOOL WriteFile(FileHandle file, const void* buffer, DWORD count, DWORD* written, void*) {
  const std::size_t put = file != nullptr ? std::fwrite(buffer, 1, count, file) : 0;
  if (written != nullptr) *written = static_cast<DWORD>(put);
  return file != nullptr && put == count;
}

DWORD SetFilePointer(FileHandle file, int offset, int*, int whence) {
  if (file == nullptr) return static_cast<DWORD>(-1);
  std::fseek(file, offset, whence);
  return static_cast<DWORD>(::ftello(file));
}

DWORD GetFileSize(FileHandle file, DWORD*) {
  return file != nullptr ? static_cast<DWORD>(Size(file)) : 0;
}

int ReadFileEx(FileHandle file, DWORD maxBytes, unsigned char** buffer, DWORD* length) {
  *buffer = nullptr;
  *length = 0;
  if (file == nullptr) return 1;
  const off_t size = Size(file);
  if (size < 0 || ::fseeko(file, 0, SEEK_SET) != 0) return 1;
  const std::size_t wanted = std::min<std::uint64_t>(static_cast<std::uint64_t>(size), maxBytes);
  auto* block = static_cast<unsigned char*>(std::malloc(wanted + 1));
  if (block == nullptr) return 1;
  const std::size_t got = std::fread(block, 1, wanted, file);
  // A file that shrank meanwhile: the block has the size that was promised, and no chance content.
  std::memset(block + got, 0, wanted - got + 1);
  *buffer = block;
  *length = static_cast<DWORD>(wanted);
  return 0;
}

int ReadFile(FileHandle file, unsigned char** buffer, DWORD* length) {
  return ReadFileEx(file, kNoLimit, buffer, length);
}

BOOL ReadFileByName(const char* path, unsigned char** buffer, DWORD* length) {
  return ReadFileByNameEx(path, kNoLimit, buffer, length);
}

BOOL ReadFileByNameEx(const char* path, DWORD maxBytes, unsigned char** buffer, DWORD* length) {
  const Stream file = OpenStream(path, O_RDONLY, "rb");
  return ReadFileEx(file.get(), maxBytes, buffer, length) == 0;
}

BOOL CopyFile(const char* source, const char* target, BOOL) {
  Descriptor content;
  off_t size = 0;
  if (OpenWholeFile(source, &content, &size) != 0) return 1;
  if (size == 0) return 0;
  int error = WriteWholeFile(target, content, kCopiedFileMode, Flush::Later);
  if (MayBeTheFolder(error) && ::lseek(content.get(), 0, SEEK_SET) == 0) {
    error = OverwriteFile(target, content);
  }
  if (error != 0) errno = error;
  return error == 0;
}

BOOL DeleteFile(const char* path) { return ::unlink(path) == 0; }

int GetFileAttributes(const char* path) {
  struct stat status {};
  if (path == nullptr || ::stat(path, &status) != 0) return -1;
  return S_ISDIR(status.st_mode) ? static_cast<int>(FILE_ATTRIBUTE_DIRECTORY) : 0;
}

BOOL SetFileAttributes(const char*, DWORD) { return 1; }

BOOL GetFileTime(const char* path, _FILETIME*, _FILETIME*, _FILETIME* written) {
  struct stat status {};
  if (written != nullptr && ::stat(path, &status) == 0) {
    const std::timespec time = os::ModificationTime(status);
    written->dwLowDateTime = static_cast<std::uint32_t>(time.tv_sec);
    written->dwHighDateTime = static_cast<std::uint32_t>(time.tv_nsec);
  }
  return 1;
}

std::string MakeSureFileCanBeWritten(const char* folder, const char* fileName) try {
  const std::string name = fileName;
  std::string path = folder + name;
  if (OpenFile(path.c_str(), O_RDWR | O_CREAT | O_APPEND)) return path;
  const std::size_t dot = name.rfind('.');
  if (dot == name.npos) return path;
  return folder + name.substr(0, dot) + "(" + std::to_string(std::rand()) + ")" + name.substr(dot);
} catch (const std::exception&) {
  return {};
}

BOOL CreateDirectory(const char* path, void*) { return ::mkdir(path, kFolderMode) == 0; }

BOOL RemoveDir(const char* path) try {
  if (path == nullptr) return 0;
  std::string folder = path;
  RTrim(folder, "/");  // "/" itself becomes "", which is no folder
  return Remove(FolderWalk(folder.c_str()));
} catch (const std::exception&) {
  return 0;
}

bool RemoveUndeletedDir(const char* path) try {
  if (path == nullptr) return false;
  std::string parent = std::string(path).substr(0, kMaxPath);
  RTrim(parent, "/");
  const std::size_t slash = parent.rfind('/');
  if (slash == parent.npos) return false;
  parent.resize(slash);

  _SYSTEMTIME today{};
  GetSystemTime(&today);
  FolderWalk folder(parent.c_str());
  while (const char* entry = folder.Next()) {
    struct stat status {};
    if (!folder.Status(entry, &status) || !S_ISDIR(status.st_mode)) continue;
    const std::time_t seconds = os::ModificationTime(status).tv_sec;
    if (seconds == 0) continue;
    _SYSTEMTIME changed{};
    ConvertTimeToSystemTime(&changed, seconds);
    if (LastChangedOnEarlierDay(changed, today)) Remove(FolderWalk(folder, entry));
  }
  return true;
} catch (const std::exception&) {
  return false;
}

void DeleteFileOrDir(const char* path) {
  struct stat status {};
  if (path == nullptr || ::lstat(path, &status) != 0) return;
  if (S_ISDIR(status.st_mode)) {
    RemoveDir(path);
    RemoveUndeletedDir(path);
  } else {
    ::unlink(path);
  }
}
