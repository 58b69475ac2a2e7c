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
  root["port"] = record.port;
  root["ssl_port"] = record.sslPort;
  return ObjectText(root);
}

std::optional<RunRecord> ParseRunRecord(const std::string& text) {
  const auto root = ParseObject(text);
  if (!root || !(*root)["arguments"].isArray()) return {};
  RunRecord record;
  record.pid = NumberMember(*root, "pid");
  record.program = TextMember(*root, "program");
  record.folder = TextMember(*root, "folder");
  for (const Json::Value& argument : (*root)["arguments"]) {
    if (!argument.isString()) return {};
    record.arguments.push_back(argument.asString());
  }
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
