#include "package/strict_json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>
#include <memory>

namespace package {

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

std::string ObjectText(const Json::Value& object) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, object) + "\n";
}

std::string TextMember(const Json::Value& object, const char* name) {
  const Json::Value& member = object[name];
  return member.isString() ? member.asString() : "";
}

int NumberMember(const Json::Value& object, const char* name) {
  const Json::Value& member = object[name];
  return member.isInt() ? member.asInt() : 0;
}

}  // namespace package
