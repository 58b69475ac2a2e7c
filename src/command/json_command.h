// The command format: one JSON object in, one JSON object out. This is the only place that reads
// commands and writes replies.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Every value of a reply stands on a line of its own, indented by its depth, so a small text of
/// brackets within brackets makes a huge reply. The cost is that indentation summed over all values
/// of the text: it also bounds how many values there are. Beyond this, which is a list of 100,000
/// parameters (each stands three deep), nothing is parsed.
inline constexpr std::size_t MOST_JSON_COST = 300'000;

/// Whether a text stays below that, seen in one pass that allocates nothing. Strings and comments
/// count as what they are; the text need not be valid.
bool IsAffordableJson(std::string_view text);

enum CommandType : int {
  COMMAND_METHOD = 0,
  COMMAND_PROPERTY = 1,
  COMMAND_EVENT = 2,
  COMMAND_NONE = 3,
};

/// 2 is kept free.
enum ParameterType : int {
  PARAMETER_NULL = 0,
  PARAMETER_BOOL = 1,
  PARAMETER_INT = 3,
  PARAMETER_UINT = 4,
  PARAMETER_DOUBLE = 5,
  PARAMETER_STRING = 6,
  PARAMETER_ARRAY = 7,
  PARAMETER_OBJECT = 8,
  PARAMETER_MISSING = 9,
};

/// The parameters of a command with its results behind them. A null element stands for JSON null.
using ParamStack = std::vector<std::unique_ptr<Json::Value>>;

/// A parsed command. Any text may be given: one that is no JSON, or that would cost too much to
/// read and to write back (IsAffordableJson), is not valid, and one that is no object has no
/// members. Nothing here throws for what the text holds.
class JsonCommand {
 public:
  JsonCommand() = default;
  explicit JsonCommand(const std::string& text) { SetJsonString(text); }

  /// Parses the text and returns whether it is valid.
  bool SetJsonString(const std::string& text);

  /// Keys are case-sensitive.
  bool IfKeyExist(const std::string& key) const;
  /// The members "cmdId", "id" and "version" as text; "" when absent or without a text form.
  std::string GetCmdId() const;
  std::string GetClientID() const;
  std::string GetVersion() const;
  /// The first of "event", "method" and "property" that the command has decides.
  CommandType GetCommandType() const;
  std::string GetFunctionName() const;
  /// "set" for a property with "parameter", "get" for one without, "" for no property.
  std::string GetPropertyType() const;

  int GetParameterCount() const;
  ParameterType GetParameterType(int index) const;
  /// A copy of the element, null when there is none.
  std::unique_ptr<Json::Value> GetParameter(int index) const;

  /// The reply's text, styled over several lines. "exception" and "description" are written only
  /// for a code other than 0, and "result" only when the stack holds something.
  static std::string Encode(const std::string& id, const std::string& name, const ParamStack& stack,
                            bool isEvent, int code, const std::string& description);
  /// The long form: with "session" and "object", and with "exception" and "description" always.
  static std::string Encode(const std::string& session, const std::string& object,
                            const std::string& name, const ParamStack& stack, bool isEvent,
                            int code, const std::string& description);

  /// Puts the command's id in as the last member of a reply, as the text that it is, at most 1,000
  /// bytes. A text that is no styled object stays as it is.
  static void AppendCommandId(std::string& reply, const std::string& cmdId);

  // Conversions of a parameter. Each returns whether it could; both pointers may be null.

  /// Any value but an object as text: numbers by "%lf" (5 gives 5.000000), null as "NULL".
  static bool GetUTF8String(const Json::Value* value, std::string* out);
  static bool ConvertString(const Json::Value* value, std::string* out);
  /// Numbers are truncated and saturate; a string is read by its leading digits. Writes -1 when a
  /// value is refused.
  static bool ConvertInt(const Json::Value* value, int* out);
  /// Bools and numbers; null is false; the string "true" in any case succeeds and writes nothing.
  static bool ConvertBOOL(const Json::Value* value, signed char* out);

 private:
  const Json::Value* Member(const char* key) const;
  std::string TextMember(const char* key) const;

  Json::Value root_;
};
