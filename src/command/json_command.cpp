#include "command/json_command.h"

#include <json/json.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <exception>
#include <string_view>

#include "platform/text.h"

namespace {

// What a handler reads as an int: numbers beyond its range stick to the end that they passed.
int Truncated(double number) {
  if (!(number > INT_MIN)) return number != number ? 0 : INT_MIN;
  return number >= INT_MAX ? INT_MAX : static_cast<int>(number);
}

// A number as "%lf" writes it, in at most 255 characters, whatever the process's locale.
std::string FixedNumber(double number) {
  constexpr std::size_t kMostCharacters = 255;
  char text[512];  // the largest number has 309 digits before its point
  const auto end = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, 6).ptr;
  return {text, std::min(static_cast<std::size_t>(end - text), kMostCharacters)};
}

Json::Value NamedReply(Json::Value reply, const std::string& name, bool isEvent) {
  reply[isEvent ? "event" : "method"] = name;
  return reply;
}

std::string StyledReply(Json::Value reply, const ParamStack& stack) {
  for (const auto& element : stack) {
    reply["result"].append(element == nullptr ? Json::Value() : *element);
  }
  return reply.toStyledString();
}

// The place behind a string whose opening quote stands before `at`.
std::size_t EndOfString(std::string_view text, std::size_t at) {
  while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
  return std::min(at + 1, text.size());
}

// The place behind a comment that begins at `at`, or behind the slash if none does.
std::size_t EndOfComment(std::string_view text, std::size_t at) {
  const char kind = at + 1 < text.size() ? text[at + 1] : '\0';
  if (kind != '*' && kind != '/') return at + 1;
  // The parser ends a line at either of the two characters.
  const auto end = kind == '*' ? text.find("*/", at + 2) : text.find_first_of("\r\n", at + 2);
  if (end == std::string_view::npos) return text.size();
  return end + (kind == '*' ? 2 : 1);
}

}  // namespace

bool JsonCommand::SetJsonString(const std::string& text) {
  bool isValid = false;
  try {
    Json::Reader reader;
    isValid = IsAffordableJson(text) &&
              reader.parse(text.data(), text.data() + text.size(), root_, false);
  } catch (const std::exception&) {  // nested beyond the parser's limit
  }
  if (!isValid) root_ = Json::Value();
  return isValid;
}

const Json::Value* JsonCommand::Member(const char* key) const {
  return root_.isObject() ? root_.find(key, key + std::string_view(key).size()) : nullptr;
}

std::string JsonCommand::TextMember(const char* key) const {
  const Json::Value* member = Member(key);
  if (member == nullptr || member->isArray() || member->isObject()) return "";
  return member->asString();
}

bool JsonCommand::IfKeyExist(const std::string& key) const {
  return root_.isObject() && root_.isMember(key);
}

std::string JsonCommand::GetCmdId() const { return TextMember("cmdId"); }
std::string JsonCommand::GetClientID() const { return TextMember("id"); }
std::string JsonCommand::GetVersion() const { return TextMember("version"); }

CommandType JsonCommand::GetCommandType() const {
  // Member names are sorted, and the first one that names a function decides.
  if (Member("event") != nullptr) return COMMAND_EVENT;
  if (Member("method") != nullptr) return COMMAND_METHOD;
  if (Member("property") != nullptr) return COMMAND_PROPERTY;
  return COMMAND_NONE;
}

std::string JsonCommand::GetFunctionName() const {
  switch (GetCommandType()) {
    case COMMAND_EVENT:
      return TextMember("event");
    case COMMAND_METHOD:
      return TextMember("method");
    case COMMAND_PROPERTY:
      return TextMember("property");
    case COMMAND_NONE:
      break;
  }
  return "";
}

std::string JsonCommand::GetPropertyType() const {
  if (Member("property") == nullptr) return "";
  return Member("parameter") != nullptr ? "set" : "get";
}

int JsonCommand::GetParameterCount() const {
  const Json::Value* parameter = Member("parameter");
  return parameter == nullptr ? 0 : static_cast<int>(parameter->size());
}

ParameterType JsonCommand::GetParameterType(int index) const {
  const Json::Value* parameter = Member("parameter");
  if (parameter == nullptr || !parameter->isArray() || index < 0 ||
      index >= static_cast<int>(parameter->size())) {
    return PARAMETER_MISSING;
  }
  const Json::Value& element = (*parameter)[index];
  if (element.isNull()) return PARAMETER_NULL;
  if (element.isBool()) return PARAMETER_BOOL;
  if (element.isInt()) return PARAMETER_INT;
  if (element.isUInt()) return PARAMETER_UINT;
  if (element.isDouble()) return PARAMETER_DOUBLE;
  if (element.isString()) return PARAMETER_STRING;
  if (element.isArray()) return PARAMETER_ARRAY;
  if (element.isObject()) return PARAMETER_OBJECT;
  return PARAMETER_MISSING;
}

std::unique_ptr<Json::Value> JsonCommand::GetParameter(int index) const {
  if (GetParameterType(index) == PARAMETER_MISSING) return nullptr;
  return std::make_unique<Json::Value>((*Member("parameter"))[index]);
}

std::string JsonCommand::Encode(const std::string& id, const std::string& name,
                                const ParamStack& stack, bool isEvent, int code,
                                const std::string& description) {
  Json::Value reply;
  reply["id"] = id;
  reply = NamedReply(std::move(reply), name, isEvent);
  if (code != 0) {
    reply["exception"] = code;
    reply["description"] = description;
  }
  return StyledReply(std::move(reply), stack);
}

std::string JsonCommand::Encode(const std::string& session, const std::string& object,
                                const std::string& name, const ParamStack& stack, bool isEvent,
                                int code, const std::string& description) {
  Json::Value reply;
  reply["session"] = session;
  reply["object"] = object;
  reply = NamedReply(std::move(reply), name, isEvent);
  reply["exception"] = code;
  reply["description"] = code != 0 ? description : "Successful";
  return StyledReply(std::move(reply), stack);
}

void JsonCommand::AppendCommandId(std::string& reply, const std::string& cmdId) {
  const auto brace = reply.rfind('}');
  if (brace == std::string::npos) return;
  const auto lineFeed = reply.rfind('\n', brace);
  if (lineFeed == std::string::npos) return;
  char member[1024];
  std::snprintf(member, sizeof member, ",\n\t\"cmdId\" : \"%s\"", cmdId.c_str());
  reply.insert(lineFeed, member);
}

bool JsonCommand::GetUTF8String(const Json::Value* value, std::string* out) {
  if (value == nullptr || out == nullptr) return false;
  if (value->isString()) {
    *out = value->asString();
  } else if (value->isBool()) {
    *out = value->asBool() ? "true" : "false";
  } else if (value->isDouble()) {  // holds for integers, too
    *out = FixedNumber(value->asDouble());
  } else if (value->isArray()) {
    *out = value->toStyledString();
  } else if (value->isNull()) {
    *out = "NULL";
  } else {
    out->clear();
    return false;
  }
  return true;
}

bool JsonCommand::ConvertString(const Json::Value* value, std::string* out) {
  return GetUTF8String(value, out);
}

bool JsonCommand::ConvertInt(const Json::Value* value, int* out) {
  if (value == nullptr || out == nullptr) return false;
  if (value->isInt()) {
    *out = value->asInt();
  } else if (value->isString()) {
    const std::string text = value->asString();
    *out = TextToInt(text.c_str());
    if (*out == 0 && text != "0") {
      *out = -1;
      return false;
    }
  } else if (value->isDouble()) {
    *out = Truncated(value->asDouble());
  } else {
    *out = -1;
    return false;
  }
  return true;
}

bool JsonCommand::ConvertBOOL(const Json::Value* value, signed char* out) {
  if (value == nullptr || out == nullptr) return false;
  if (value->isString()) {
    // The caller's own value stays: pages rely on a text meaning "as it was".
    const std::string text = value->asString();
    return text.size() == 4 && ::strcasecmp(text.c_str(), "true") == 0;
  }
  if (value->isBool()) {
    *out = value->asBool() ? 1 : 0;
  } else if (value->isDouble()) {
    *out = value->asDouble() != 0 ? 1 : 0;
  } else if (value->isNull()) {
    *out = 0;
  } else {
    return false;
  }
  return true;
}

bool IsAffordableJson(std::string_view text) {
  std::size_t cost = 0;
  std::size_t depth = 1;
  for (std::size_t at = 0; at < text.size();) {
    switch (text[at]) {
      case '"':
        at = EndOfString(text, at + 1);
        continue;
      case '/':
        at = EndOfComment(text, at);
        continue;
      case '[':
      case '{':
        cost += ++depth;
        break;
      case ']':
      case '}':
        depth -= depth > 1 ? 1 : 0;
        break;
      case ',':
        cost += depth;
        break;
      default:
        break;
    }
    if (cost > MOST_JSON_COST) return false;
    ++at;
  }
  return true;
}
