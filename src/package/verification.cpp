#include "package/verification.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>
#include <system_error>

#include "os/file.h"
#include "os/text.h"

namespace package {

namespace {

namespace fs = std::filesystem;

/// Reads a regular file that is not reached by a link, and not larger than that.
bool ReadRegular(const std::string& path, off_t most, std::string* content) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= most &&
         ReadWholeFile(path.c_str(), content) == 0;
}

bool HasProgramName(std::string_view path) {
  const std::string name = ascii::Lower(path.substr(path.rfind('/') + 1));
  constexpr std::array kEndings = {".so", ".dylib", ".exe", ".dll", ".bundle"};
  return name.find(".so.") != name.npos ||  // libname.so.1
         std::any_of(kEndings.begin(), kEndings.end(),
                     [&name](const char* ending) { return name.ends_with(ending); });
}

bool BeginsAsProgram(std::string_view bytes) {
  // ELF; Mach-O of 32 and 64 bits in both byte orders, and with several architectures; PE; scripts.
  constexpr std::array<std::string_view, 10> kBegins = {
      "\x7F"
      "ELF",
      "\xFE\xED\xFA\xCE",
      "\xFE\xED\xFA\xCF",
      "\xCE\xFA\xED\xFE",
      "\xCF\xFA\xED\xFE",
      "\xCA\xFE\xBA\xBE",
      "\xCA\xFE\xBA\xBF",
      "\xBE\xBA\xFE\xCA",
      "MZ",
      "#!"};
  return std::any_of(kBegins.begin(), kBegins.end(),
                     [bytes](std::string_view begin) { return bytes.starts_with(begin); });
}

}  // namespace

std::optional<Manifest> LoadManifest(const std::string& folder, Kind kind, const UpdateKeys& keys,
                                     std::string* why) {
  constexpr off_t kMostBytes = 1024 * 1024;  // far above any real manifest
  constexpr off_t kMostSignature = 1024;
  std::string text, signature;
  if (!ReadRegular(folder + MANIFEST_NAME, kMostBytes, &text)) {
    *why = "The package has no manifest that can be read.";
    return {};
  }
  if (keys.AreRequired()) {
    if (!ReadRegular(folder + SIGNATURE_NAME, kMostSignature, &signature)) {
      *why = "The package is not signed.";
      return {};
    }
    if (!keys.Verify(text, signature)) {
      *why = "The package is not signed with a key that this service knows.";
      return {};
    }
  }
  return ParseManifest(text, kind, why);
}

bool HoldsExactly(const std::string& folder, const Manifest& manifest, std::string* why) {
  std::map<std::string, std::string> missing;
  for (const ManifestFile& file : manifest.files) missing[file.name] = file.sha256;
  std::error_code error;
  fs::recursive_directory_iterator entries(folder, error);
  for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
    const std::string name = entries->path().lexically_relative(folder).generic_string();
    const fs::file_type type = entries->symlink_status(error).type();
    if (error) break;
    if (type == fs::file_type::directory || name == MANIFEST_NAME || name == SIGNATURE_NAME) {
      continue;
    }
    const auto listed = missing.find(name);
    if (listed == missing.end()) {
      *why = "The manifest does not list " + name + ".";
      return false;
    }
    if (Sha256OfFile(entries->path()) != listed->second) {
      *why = name + " is not the file that the manifest tells of.";
      return false;
    }
    missing.erase(listed);
  }
  if (error) {
    *why = "The package cannot be looked at: " + error.message() + ".";
  } else if (!missing.empty()) {
    *why = "The package lacks " + missing.begin()->first + ".";
  }
  return !error && missing.empty();
}

bool IsProgram(const std::string& path) {
  if (HasProgramName(path)) return true;
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  std::array<char, 4> bytes{};
  if (!file || ::fstat(file.get(), &status) != 0) return true;
  const ssize_t count = ::read(file.get(), bytes.data(), bytes.size());
  return count < 0 || (status.st_mode & 0111) != 0 ||
         BeginsAsProgram({bytes.data(), static_cast<std::size_t>(count)});
}

}  // namespace package
