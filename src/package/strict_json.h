// JSON records, read strictly: exactly one object, no member twice, little nesting.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace package {

/// The object that a text holds; nothing when it is not exactly one object, is nested beyond need
/// or names a member twice.
std::optional<Json::Value> ParseObject(const std::string& text);
/// In one line. Texts keep their bytes.
std::string ObjectText(const Json::Value& object);
/// A member of the kind asked for, else "" or 0.
std::string TextMember(const Json::Value& object, const char* name);
int NumberMember(const Json::Value& object, const char* name);

}  // namespace package
