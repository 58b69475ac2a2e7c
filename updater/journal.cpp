#include "updater/journal.h"

#include "updater/json_text.h"
#include "updater/manifest.h"

namespace update {

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

}  // namespace update
