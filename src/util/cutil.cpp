#include "util/cutil.h"

#include <idn2.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "os/folder.h"
#include "os/system.h"
#include "os/text.h"
#include "platform/file.h"
#include "platform/ini_file.h"
#include "platform/system_time.h"
#include "platform/text.h"

namespace {

constexpr std::size_t kPathBytes = 1024;

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

bool LabelToAscii(const std::string& label, std::string* ascii) {
  if (IsAscii(label)) {
    *ascii += label;
    return true;
  }
  char* converted = nullptr;
  const int rc =
      ::idn2_to_ascii_8z(label.c_str(), &converted, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
  const std::unique_ptr<char, decltype(&::idn2_free)> owner(converted,
                                                            [](void* text) { ::idn2_free(text); });
  if (rc != IDN2_OK) return false;
  *ascii += converted;
  return true;
}

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

void CUtil::GetModulePath(char* out) try {
  constexpr std::string_view kInsideBundle = "/Contents/MacOS/";
  std::string path = os::ExecutablePath();
  if (const auto bundle = path.rfind(kInsideBundle); bundle != std::string::npos) {
    path.resize(bundle);
  }
  lstrcpyn(out, path.c_str(), kPathBytes + 1);
} catch (const std::bad_alloc&) {
  out[0] = '\0';
}

void CUtil::GetDllPath(char* out) {
  char path[kPathBytes + 1];
  GetModulePath(path);
  std::string_view folder(path);
  const auto end = folder.find_last_of("/\\");
  std::memset(out, 0, kPathBytes);
  if (end == std::string_view::npos) return;
  folder = folder.substr(0, std::min(end, kPathBytes - 2));
  std::memcpy(out, folder.data(), folder.size());
  out[folder.size()] = '/';
}

int CUtil::CreateUUID(char* out) {
  std::memset(out, 0, kPathBytes);
  std::memcpy(out, MakeIdentifier().data(), kIdentifierLength);
  return static_cast<int>(kIdentifierLength);
}

_SYSTEMTIME CUtil::GetLocalTime() {
  _SYSTEMTIME now{};
  GetSystemTime(&now);
  return now;
}

void CUtil::RemoveChar(char* s, char c) { *std::remove(s, s + std::strlen(s), c) = '\0'; }

void CUtil::TrimWindowsFileName(char* s) {
  for (const char ch : {' ', '\\', '/'}) ::TrimRight(s, ch);
}

void CUtil::TrimRight(char* s, char c) { ::TrimRight(s, c); }

int CUtil::ReverseFindChar(const char* s, char c) { return ::ReverseFindChar(s, c); }

void CUtil::find_and_replace(std::string& s, const std::string& from, const std::string& to) try {
  if (from.empty() || from == to) return;
  std::size_t end = 0;
  std::string replaced;
  for (std::size_t at; (at = s.find(from, end)) != std::string::npos; end = at + from.size()) {
    replaced.append(s, end, at - end).append(to);
  }
  if (end == 0) return;
  s = replaced.append(s, end);
} catch (const std::bad_alloc&) {
  // The text was not touched yet.
}

bool CUtil::IdnToAscii(const char* in, char* out) try {
  if (in == nullptr || out == nullptr) return false;
  std::string ascii;
  std::string_view rest(in);
  while (true) {
    const auto dot = rest.find('.');
    if (!LabelToAscii(std::string(rest.substr(0, dot)), &ascii)) return false;
    if (dot == std::string_view::npos) break;
    ascii += '.';
    rest.remove_prefix(dot + 1);
  }
  if (ascii.size() >= kPathBytes) return false;
  lstrcpyn(out, ascii.c_str(), ascii.size() + 1);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

BOOL CUtil::CreateDirectory(const char* path, bool) try {
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
} catch (const std::bad_alloc&) {
  return 0;
}

bool CUtil::DeleteDirectory(const char* path, bool removeSelf) try {
  std::string name = path;
  RTrim(name, "\\");
  RTrim(name, "/");
  FolderWalk folder(name.c_str());
  return DeleteContent(folder, name) && (!removeSelf || std::remove(name.c_str()) == 0);
} catch (const std::bad_alloc&) {
  return false;
}

bool CUtil::CopyDirectoryFiles(const char* src, const char* dst, bool recursive) try {
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
} catch (const std::bad_alloc&) {
  return false;
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
