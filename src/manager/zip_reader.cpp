#include "manager/zip_reader.h"

#include <fcntl.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "manager/zip_names.h"
#include "platform/descriptor.h"
#include "platform/file.h"
#include "platform/file_content.h"

namespace {

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

}  // namespace

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
  if (info.number_entry > ZipNames::kMostEntries) {
    return Fail(EFBIG, "The archive holds more than " + std::to_string(ZipNames::kMostEntries) +
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
    if (entry.size > kMostBytes || (total += entry.size) > kMostBytes) {
      return Fail(EFBIG,
                  "The archive unpacks to more than " + std::to_string(kMostBytes) + " bytes");
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
