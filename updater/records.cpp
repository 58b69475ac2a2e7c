#include "updater/records.h"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <sys/stat.h>

#include <cstring>
#include <exception>
#include <memory>
#include <set>

#include "environment/module_identity.h"
#include "environment/paths.h"
#include "os/file.h"
#include "os/text.h"

namespace updater {

namespace {

/// The object that a text holds; nothing when it is not exactly one object, is nested beyond need
/// or names a member twice.
std::optional<Json::Value> ParseObject(const std::string& text) {
  constexpr int kDeepest = 16;
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = kDeepest;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  try {
    // The reader throws where nesting goes beyond the limit.
    if (!reader->parse(text.data(), text.data() + text.size(), &root, nullptr)) return {};
  } catch (const std::exception&) {
    return {};
  }
  if (!root.isObject()) return {};
  return root;
}

/// In one line. Texts keep their bytes.
std::string ObjectText(const Json::Value& object) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, object) + "\n";
}

/// A member of the kind asked for, else the default.
std::string TextMember(const Json::Value& object, const char* name) {
  const Json::Value& member = object[name];
  return member.isString() ? member.asString() : "";
}

int NumberMember(const Json::Value& object, const char* name) {
  const Json::Value& member = object[name];
  return member.isInt() ? member.asInt() : 0;
}

// Far above any real package.
constexpr off_t kMostBytes = 1024 * 1024;
constexpr std::size_t kMostFiles = 1000;
constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestVersion = 64;
constexpr std::size_t kSumDigits = 64;

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
    // Some file systems do not tell names apart that differ in case only.
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

bool MayBeInstalled(std::string_view name) { return IsPlainName(name) && !IsServiceState(name); }

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

std::string JournalText(const Journal& journal) {
  Json::Value root(Json::objectValue);
  root["version"] = journal.version;
  root["committed"] = journal.committed;
  root["files"] = Json::Value(Json::arrayValue);
  for (const JournalFile& file : journal.files) {
    Json::Value entry(Json::objectValue);
    entry["name"] = file.name;
    entry["existed"] = file.existed;
    root["files"].append(entry);
  }
  return ObjectText(root);
}

std::optional<Journal> ParseJournal(const std::string& text) {
  const auto root = ParseObject(text);
  if (!root || !(*root)["committed"].isBool() || !(*root)["files"].isArray()) return {};
  Journal journal;
  journal.version = TextMember(*root, "version");
  journal.committed = (*root)["committed"].asBool();
  for (const Json::Value& entry : (*root)["files"]) {
    if (!entry.isObject() || !entry["existed"].isBool()) return {};
    const std::string name = TextMember(entry, "name");
    if (!MayBeInstalled(name)) return {};
    journal.files.push_back({name, entry["existed"].asBool()});
  }
  return journal;
}

std::string RunRecordText(const RunRecord& record) {
  Json::Value root(Json::objectValue);
  root["pid"] = record.pid;
  root["program"] = record.program;
  root["folder"] = record.folder;
  root["arguments"] = Json::Value(Json::arrayValue);
  for (const std::string& argument : record.arguments) root["arguments"].append(argument);
  root["environment"] = Json::Value(Json::arrayValue);
  for (const std::string& variable : record.environment) root["environment"].append(variable);
  root["build"] = record.build;
  root["serving"] = record.serving;
  root["port"] = record.port;
  root["ssl_port"] = record.sslPort;
  return ObjectText(root);
}

std::optional<RunRecord> ParseRunRecord(const std::string& text) {
  const auto root = ParseObject(text);
  if (!root || !(*root)["arguments"].isArray() || !(*root)["environment"].isArray()) return {};
  RunRecord record;
  record.pid = NumberMember(*root, "pid");
  record.program = TextMember(*root, "program");
  record.folder = TextMember(*root, "folder");
  const auto take = [&root](const char* name, std::vector<std::string>& texts) {
    for (const Json::Value& entry : (*root)[name]) {
      if (!entry.isString()) return false;
      texts.push_back(entry.asString());
    }
    return true;
  };
  if (!take("arguments", record.arguments) || !take("environment", record.environment)) return {};
  record.build = TextMember(*root, "build");
  record.port = NumberMember(*root, "port");
  record.sslPort = NumberMember(*root, "ssl_port");
  // Older services do not tell it. They write their ports once they listen on them.
  const Json::Value& serving = (*root)["serving"];
  record.serving = serving.isBool() ? serving.asBool() : record.port + record.sslPort > 0;
  return record;
}

std::optional<RunRecord> ReadRunRecord(const std::string& file) {
  std::string text;
  if (ReadWholeFile(file.c_str(), &text) != 0) return {};
  return ParseRunRecord(text);
}

}  // namespace updater
