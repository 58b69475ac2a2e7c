#include "manager/unzip.h"

#include <fcntl.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "os/file.h"
#include "os/text.h"
#include "platform/file.h"
#include "platform/text.h"
#include "util/cutil.h"

std::string PrintableName(std::string_view name) {
  constexpr std::size_t kShown = 200;
  std::string printable(name.substr(0, kShown));
  std::replace_if(
      printable.begin(), printable.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
  return printable;
}

namespace {

/// Refuses what would lead out of a folder, could not be told apart on every file system, or would
/// cost more than an archive may. Nothing is ever put right: a name that is not plain comes from
/// no tool that packs for this service.
class ZipNames {
 public:
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

/// Folders that only the names of others imply count, too: each costs as much as a file.
constexpr std::size_t kMostNodes = 2 * Compress::kMostEntries;
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

constexpr std::size_t kBufferBytes = 256 * 1024;
constexpr mode_t kFolderMode = 0777;
constexpr mode_t kFileMode = 0666;
constexpr mode_t kExecute = 0111;
constexpr unsigned long kEncrypted = 0x2041;  // as a whole, strongly, or the list itself
constexpr std::uint64_t kSizeElsewhere = 0xFFFFFFFF;

std::uint64_t LittleEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    value = value << 8 | static_cast<unsigned char>(*byte);
  }
  return value;
}

/// The size in the extension for large files (its first field, of header 1) among an entry's
/// further fields. Not every version of the library reads it. Without one the size is as given.
std::uint64_t LargeSize(std::string_view fields) {
  constexpr std::size_t kHead = 4;
  while (fields.size() >= kHead) {
    const std::uint64_t id = LittleEndian(fields.substr(0, 2));
    const std::uint64_t size = LittleEndian(fields.substr(2, 2));
    fields.remove_prefix(kHead);
    if (id == 1 && size >= 8 && fields.size() >= 8) return LittleEndian(fields.substr(0, 8));
    fields.remove_prefix(std::min<std::size_t>(size, fields.size()));
  }
  return kSizeElsewhere;
}

/// The library's own opener leaves the descriptor open for started programs.
void* OpenCloseOnExec(void*, const void* name, int) {
  return CreateFile(static_cast<const char*>(name), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0,
                    nullptr);
}

/// What is wrong with an entry, its name aside; null for nothing.
const char* CheckKind(const unz_file_info64& info, bool isFolder, std::uint64_t size) {
  const auto type = static_cast<mode_t>(info.external_fa >> 16) & S_IFMT;
  if (type == S_IFLNK) return "is a link";
  if ((info.flag & kEncrypted) != 0) return "is encrypted";
  if (info.compression_method != 0 && info.compression_method != Z_DEFLATED) {
    return "is compressed in an unknown way";
  }
  if (isFolder ? size != 0 : type == S_IFDIR) {
    return "is a folder and a file at once";
  }
  return nullptr;
}

/// An archive, opened, looked at and then extracted. Where a call returns false, errno and why()
/// tell the reason. Memory: the names, and one buffer for the bytes on their way.
class ZipReader {
 public:
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

void ZipReader::Close::operator()(void* archive) const {
  const int saved = errno;
  ::unzClose(archive);
  errno = saved;
}

bool ZipReader::Fail(int error, std::string why) {
  why_ = std::move(why);
  errno = error;
  return false;
}

bool ZipReader::FailAt(int error, const std::string& name, const char* why) {
  return Fail(error, "The entry \"" + PrintableName(name) + "\" " + why);
}

bool ZipReader::Open(const char* file) {
  zlib_filefunc64_def functions;
  ::fill_fopen64_filefunc(&functions);
  functions.zopen64_file = &OpenCloseOnExec;
  archive_.reset(::unzOpen2_64(file, &functions));
  return archive_ != nullptr;
}

bool ZipReader::ReadEntries() {
  unz_global_info64 info{};
  if (::unzGetGlobalInfo64(archive_.get(), &info) != UNZ_OK) {
    return Fail(EBADMSG, "The archive is damaged");
  }
  if (info.number_entry == 0) return Fail(EINVAL, "The archive holds no files");
  if (info.number_entry > Compress::kMostEntries) {
    return Fail(EFBIG, "The archive holds more than " + std::to_string(Compress::kMostEntries) +
                           " entries");
  }
  ZipNames names;
  std::uint64_t total = 0;
  for (std::uint64_t i = 0; i < info.number_entry; ++i) {
    const int moved =
        i == 0 ? ::unzGoToFirstFile(archive_.get()) : ::unzGoToNextFile(archive_.get());
    if (moved != UNZ_OK) return Fail(EBADMSG, "The list of the archive's entries is damaged");
    Entry entry;
    if (!ReadEntry(&entry)) return false;
    if (const char* refusal = names.Add(entry.name)) return FailAt(EINVAL, entry.name, refusal);
    // Both are at most 64 bits wide, so the sum could wrap.
    if (entry.size > Compress::kMostBytes || (total += entry.size) > Compress::kMostBytes) {
      return Fail(EFBIG, "The archive unpacks to more than " +
                             std::to_string(Compress::kMostBytes) + " bytes");
    }
    entries_.push_back(std::move(entry));
  }
  return true;
}

bool ZipReader::ReadEntry(Entry* entry) {
  unz_file_info64 info{};
  unz64_file_pos position{};
  char name[ZipNames::kLongestName + 1];  // one more than a name may have, so that one is seen
  buffer_.resize(kBufferBytes);
  if (::unzGetCurrentFileInfo64(archive_.get(), &info, name, sizeof name, buffer_.data(),
                                kBufferBytes, nullptr, 0) != UNZ_OK ||
      ::unzGetFilePos64(archive_.get(), &position) != UNZ_OK) {
    return Fail(EBADMSG, "The list of the archive's entries is damaged");
  }
  entry->name.assign(name, std::min<std::size_t>(info.size_filename, sizeof name));
  entry->size = info.uncompressed_size != kSizeElsewhere
                    ? info.uncompressed_size
                    : LargeSize({buffer_.data(), info.size_file_extra});
  entry->checksum = info.crc;
  entry->place = position.pos_in_zip_directory;
  entry->number = position.num_of_file;
  entry->mode = kFileMode | (static_cast<mode_t>(info.external_fa >> 16) & kExecute);
  const char* refusal = CheckKind(info, entry->isFolder(), entry->size);
  return refusal == nullptr || FailAt(EINVAL, entry->name, refusal);
}

bool ZipReader::ExtractAll(const std::string& folder) {
  for (const Entry& entry : entries_) {
    if (!MakeFolders(folder, entry.name)) {
      return FailAt(errno, entry.name, "cannot have its folder");
    }
    if (!entry.isFolder() && !Extract(folder, entry)) return false;
  }
  return true;
}

/// Makes the folders of a name that are missing, that of a folder's name included.
bool ZipReader::MakeFolders(const std::string& folder, const std::string& name) {
  for (auto slash = name.find('/'); slash != name.npos; slash = name.find('/', slash + 1)) {
    const std::string path = folder + "/" + name.substr(0, slash);
    if (!folders_.insert(path).second || ::mkdir(path.c_str(), kFolderMode) == 0) continue;
    struct stat status {};
    if (errno != EEXIST || ::lstat(path.c_str(), &status) != 0) return false;
    if (S_ISDIR(status.st_mode)) continue;
    errno = ENOTDIR;
    return false;
  }
  return true;
}

bool ZipReader::Extract(const std::string& folder, const Entry& entry) {
  const unz64_file_pos position{entry.place, entry.number};
  if (::unzGoToFilePos64(archive_.get(), &position) != UNZ_OK ||
      ::unzOpenCurrentFile(archive_.get()) != UNZ_OK) {
    return FailAt(EBADMSG, entry.name, "is damaged");
  }
  const std::string path = folder + "/" + entry.name;
  // What stood there is replaced, not written to: it may be a link.
  ::unlink(path.c_str());
  Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, entry.mode));
  if (!file) return FailAt(errno, entry.name, "cannot be written");
  if (!CopyContent(file.get(), entry)) return false;
  // A file system over a network may tell only now that it is full.
  if (::close(file.Release()) != 0) return FailAt(errno, entry.name, "cannot be written");
  return true;
}

/// Takes as many bytes as the entry has by its list, and sums them up itself: the library does
/// neither for sizes that stand in the extension for large files.
bool ZipReader::CopyContent(int file, const Entry& entry) {
  unsigned long checksum = ::crc32(0, nullptr, 0);
  for (std::uint64_t rest = entry.size; rest > 0;) {
    const auto wanted = static_cast<unsigned>(std::min<std::uint64_t>(rest, kBufferBytes));
    const int count = ::unzReadCurrentFile(archive_.get(), buffer_.data(), wanted);
    if (count <= 0) return FailAt(EBADMSG, entry.name, "is damaged");
    const auto size = static_cast<std::size_t>(count);
    if (const int error = WriteAll(file, {buffer_.data(), size})) {
      return FailAt(error, entry.name, "cannot be written");
    }
    checksum = ::crc32_z(checksum, reinterpret_cast<const Bytef*>(buffer_.data()), size);
    rest -= size;
  }
  ::unzCloseCurrentFile(archive_.get());
  if (checksum != entry.checksum) return FailAt(EBADMSG, entry.name, "has a wrong checksum");
  return true;
}

}  // namespace

bool Compress::Fail(int error, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(description_, sizeof description_, format, arguments);
  va_end(arguments);
  errno = error;
  return false;
}

bool Compress::Unzip(const char* zipFile, const char* folder) {
  constexpr std::size_t kLongestArchiveName = 255;
  description_[0] = '\0';
  isArchive_ = true;
  if (GetFileAttributes(zipFile) == -1) {
    return Fail(errno, "Cannot find the specified file \"%s\"", zipFile);
  }
  char target[1024];
  lstrcpyn(target, folder, sizeof target);
  CUtil::TrimWindowsFileName(target);
  CUtil::CreateDirectory((target + std::string("/")).c_str(), true);

  ZipReader reader;
  const std::string archive = std::string(zipFile).substr(0, kLongestArchiveName);
  if (!reader.Open(archive.c_str()) && !reader.Open((archive + ".zip").c_str())) {
    isArchive_ = false;
    return Fail(errno, "Cannot open %s or %s.zip", zipFile, zipFile);
  }
  const std::string absolute = FollowLinks(target);
  if (::chdir(target) != 0) return Fail(errno, "Error changing into %s", target);
  if (reader.ReadEntries() && reader.ExtractAll(absolute)) return true;
  return Fail(errno, "%s", reader.why().c_str());
}
