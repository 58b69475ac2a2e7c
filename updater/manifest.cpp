#include "updater/manifest.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string_view>

#include "environment/module_identity.h"
#include "platform/ascii.h"
#include "platform/file_content.h"
#include "updater/json_text.h"

namespace update {

namespace {

// Far above any real package; a manifest beyond it is not worth reading.
constexpr off_t kMostBytes = 1024 * 1024;
constexpr std::size_t kMostFiles = 1000;
constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestVersion = 64;
constexpr std::size_t kSumDigits = 64;

/// What in the work folder belongs to the service's owner or to the update itself.
constexpr std::array<std::string_view, 11> kKept = {"qvconfiguration.ini",
                                                    "user_config.ini",
                                                    "service.run",
                                                    "cache",
                                                    "log",
                                                    "upload",
                                                    "cert",
                                                    "dump",
                                                    "nginx",
                                                    "qv.exception",
                                                    "port.lock"};

/// Also no name that begins with a dot: those are hidden, or lead out of the folder.
bool IsPlainName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && !name.starts_with('.') &&
         name.find_first_of("/\\:") == name.npos && !ascii::HasControl(name);
}

bool IsVersion(std::string_view text) {
  return !text.empty() && text.size() <= kLongestVersion && !ascii::HasControl(text) &&
         text.find_first_of("/\\") == text.npos && text.find("..") == text.npos;
}

bool IsSum(std::string_view text) {
  return text.size() == kSumDigits && text.find_first_not_of("0123456789abcdef") == text.npos;
}

/// The reason to refuse a list of files, "" for none.
std::string ReadFiles(const Json::Value& list, std::vector<ManifestFile>& files) {
  if (!list.isArray() || list.empty()) return "The manifest lists no files.";
  if (list.size() > kMostFiles) return "The manifest lists too many files.";
  std::set<std::string> seen;
  for (const Json::Value& entry : list) {
    if (!entry.isObject()) return "The manifest lists something that is no file.";
    ManifestFile file{TextMember(entry, "name"), TextMember(entry, "sha256"),
                      entry["executable"].isBool() && entry["executable"].asBool()};
    if (!IsPlainName(file.name)) return "The manifest names a file that is no plain file name.";
    // Some file systems take names that differ in case for the same.
    const std::string folded = ascii::Lower(file.name);
    if (!MayBeInstalled(file.name)) {
      return "The manifest names " + file.name + ", which no package may replace.";
    }
    if (!seen.insert(folded).second) return "The manifest names " + file.name + " twice.";
    if (!IsSum(file.sha256)) return "The manifest gives no SHA-256 for " + file.name + ".";
    files.push_back(std::move(file));
  }
  return "";
}

}  // namespace

bool MayBeInstalled(std::string_view name) {
  return IsPlainName(name) &&
         std::find(kKept.begin(), kKept.end(), ascii::Lower(name)) == kKept.end();
}

std::optional<Manifest> ParseManifest(const std::string& text, std::string& error) {
  const auto root = ParseObject(text);
  if (!root) {
    error = "The manifest is no JSON object as it must be.";
    return {};
  }
  Manifest manifest;
  manifest.version = TextMember(*root, "version");
  manifest.build = TextMember(*root, "build");
  if (TextMember(*root, "product") != SERVICE_NAME) {
    error = std::string("The package is not for the product ") + SERVICE_NAME + ".";
  } else if (!IsVersion(manifest.version)) {
    error = "The manifest has no version that could be stored.";
  } else if (root->isMember("build") && !IsVersion(manifest.build)) {
    error = "The manifest has a build that no service could tell.";
  } else {
    error = ReadFiles((*root)["files"], manifest.files);
  }
  if (!error.empty()) return {};
  return manifest;
}

std::optional<Manifest> LoadManifest(const std::string& package, std::string& error) {
  const std::string path = package + MANIFEST_NAME;
  struct stat status {};
  std::string text;
  if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    error = "The package has no manifest.";
  } else if (status.st_size > kMostBytes) {
    error = "The manifest is too large.";
  } else if (const int problem = ReadWholeFile(path.c_str(), &text)) {
    error = std::string("The manifest cannot be read: ") + std::strerror(problem) + ".";
  } else {
    return ParseManifest(text, error);
  }
  return {};
}

}  // namespace update
