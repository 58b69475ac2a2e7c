#include "updater/run_record.h"

#include "platform/file_content.h"
#include "updater/json_text.h"

namespace update {

std::string RunRecordText(const RunRecord& record) {
  Json::Value root(Json::objectValue);
  root["pid"] = record.pid;
  root["program"] = record.program;
  root["folder"] = record.folder;
  root["arguments"] = Json::Value(Json::arrayValue);
  for (const std::string& argument : record.arguments) root["arguments"].append(argument);
  root["environment"] = Json::Value(Json::arrayValue);
  for (const std::string& variable : record.environment) root["environment"].append(variable);
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
  record.port = NumberMember(*root, "port");
  record.sslPort = NumberMember(*root, "ssl_port");
  return record;
}

std::optional<RunRecord> ReadRunRecord(const std::string& file) {
  std::string text;
  if (ReadWholeFile(file.c_str(), &text) != 0) return {};
  return ParseRunRecord(text);
}

}  // namespace update
