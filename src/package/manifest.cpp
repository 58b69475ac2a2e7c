#include "package/manifest.h"

#include <json/value.h>

#include <algorithm>
#include <set>

#include "environment/module_identity.h"
#include "environment/paths.h"
#include "os/text.h"
#include "package/strict_json.h"

namespace package {

namespace {

// Far above any real package.
constexpr std::size_t kMostFiles = 1000;
constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestVersion = 64;
constexpr std::size_t kSumDigits = 64;

std::string ProductOf(Kind kind) {
  return std::string(SERVICE_NAME) + (kind == Kind::ModuleFiles ? " module files" : "");
}

bool IsPlainName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && !name.starts_with('.') &&
         name.find_first_of("/\\:") == name.npos && !ascii::HasControl(name);
}

/// The same for a name with folders.
bool IsPlainPath(std::string_view path) {
  if (path.size() > kLongestName) return false;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (!IsPlainName(path.substr(start, end - start))) return false;
    start = end + 1;
  }
  return true;
}

bool IsVersion(std::string_view text) {
  return !text.empty() && text.size() <= kLongestVersion && !ascii::HasControl(text) &&
         text.find_first_of("/\\") == text.npos && text.find("..") == text.npos;
}

bool IsSum(std::string_view text) {
  return text.size() == kSumDigits && text.find_first_not_of("0123456789abcdef") == text.npos;
}

/// The reason to refuse a list of files, "" for none.
std::string ReadFiles(const Json::Value& list, Kind kind, std::vector<ManifestFile>& files) {
  if (!list.isArray() || list.empty()) return "The manifest lists no files.";
  if (list.size() > kMostFiles) return "The manifest lists too many files.";
  std::set<std::string> seen;
  for (const Json::Value& entry : list) {
    if (!entry.isObject()) return "The manifest lists something that is no file.";
    ManifestFile file{TextMember(entry, "name"), TextMember(entry, "sha256"),
                      entry["executable"].isBool() && entry["executable"].asBool(),
                      !entry["install"].isBool() || entry["install"].asBool()};
    if (kind == Kind::Service ? !IsPlainName(file.name) : !IsPlainPath(file.name)) {
      return "The manifest names a file that is no plain file name.";
    }
    // Some file systems do not tell names apart that differ in case only.
    const std::string folded = ascii::Lower(file.name);
    if (IsServiceState(file.name)) {
      return "The manifest names " + file.name + ", which no package may replace.";
    }
    if (!seen.insert(folded).second) return "The manifest names " + file.name + " twice.";
    if (!IsSum(file.sha256)) return "The manifest gives no SHA-256 for " + file.name + ".";
    files.push_back(std::move(file));
  }
  const bool installs = std::any_of(files.begin(), files.end(),
                                    [](const ManifestFile& file) { return file.install; });
  return installs ? "" : "The manifest lists no files to install.";
}

/// Takes the next number out of a text, without leading zeros; "" for 0 and at the end. As text:
/// a field may have any length.
std::string_view TakeNumber(std::string_view& text) {
  constexpr std::string_view kDigits = "0123456789";
  text.remove_prefix(std::min(text.find_first_of(kDigits), text.size()));
  std::string_view number = text.substr(0, text.find_first_not_of(kDigits));
  text.remove_prefix(number.size());
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  return number;
}

}  // namespace

bool MayBeInstalled(std::string_view name) { return IsPlainName(name) && !IsServiceState(name); }

std::optional<Manifest> ParseManifest(const std::string& text, Kind kind, std::string* why) {
  const auto root = ParseObject(text);
  if (!root) {
    *why = "The manifest is no JSON object as it must be.";
    return {};
  }
  const std::string product = ProductOf(kind);
  Manifest manifest;
  manifest.version = TextMember(*root, "version");
  manifest.build = TextMember(*root, "build");
  if (TextMember(*root, "product") != product) {
    *why = "The package is not for the product " + product + ".";
  } else if (!IsVersion(manifest.version)) {
    *why = "The manifest has no version that could be stored.";
  } else if (root->isMember("build") && !IsVersion(manifest.build)) {
    *why = "The manifest has a build that no service could tell.";
  } else {
    *why = ReadFiles((*root)["files"], kind, manifest.files);
  }
  if (!why->empty()) return {};
  return manifest;
}

bool IsLowerVersion(std::string_view version, std::string_view other) {
  while (!version.empty() || !other.empty()) {
    const std::string_view one = TakeNumber(version), two = TakeNumber(other);
    if (one.size() != two.size()) return one.size() < two.size();
    if (one != two) return one < two;
  }
  return false;
}

}  // namespace package
