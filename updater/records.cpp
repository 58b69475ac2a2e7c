#include "updater/records.h"

#include <json/value.h>

#include "os/file.h"
#include "package/manifest.h"
#include "package/strict_json.h"

namespace updater {

using package::NumberMember;
using package::ObjectText;
using package::ParseObject;
using package::TextMember;

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
    if (!package::MayBeInstalled(name)) return {};
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
