// A request of any path (up to the first line feed) and any text: it becomes a command, its
// parameters convert, and the reply to it is JSON again.
#include "command/command_text.h"

#include <algorithm>

#include "command/json_command.h"
#include "fuzz/fuzz_target.h"

namespace {

/// The parser takes 1,000 levels, and a reply nests its parameters deeper by two.
constexpr auto kManyLevels = 900;

void Convert(const Json::Value* value) {
  std::string text;
  int number = 0;
  signed char flag = 0;
  const bool isText = JsonCommand::GetUTF8String(value, &text);
  std::string sameText;
  Require(JsonCommand::ConvertString(value, &sameText) == isText && sameText == text,
          "both conversions to text agree");
  if (!JsonCommand::ConvertInt(value, &number)) {
    Require(value == nullptr || number == -1, "a refused number is -1");
  }
  JsonCommand::ConvertBOOL(value, &flag);
  Require(flag == 0 || flag == 1, "a flag is 0 or 1");
}

ParamStack ConvertedParameters(const JsonCommand& command) {
  ParamStack stack;
  const int count = command.GetParameterCount();
  Require(count >= 0, "a count is not negative");
  for (int i = 0; i < count; ++i) {
    auto value = command.GetParameter(i);
    Require((value == nullptr) == (command.GetParameterType(i) == PARAMETER_MISSING),
            "a parameter with a type has a value");
    Convert(value.get());
    stack.push_back(std::move(value));
  }
  Require(command.GetParameterType(count) == PARAMETER_MISSING, "no parameter behind the last");
  return stack;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view path = input.substr(0, input.find('\n'));
  const std::string_view request = input.substr(std::min(path.size() + 1, input.size()));

  const CommandText built = BuildCommandText(path, request);
  Require(built.payloadOffset <= request.size(), "a payload lies in the request");
  Require(built.payload == PayloadSource::BehindSeparator || built.payloadOffset == 0,
          "only a payload behind a separator has an offset");
  Require((built.payload == PayloadSource::Body) == TakesBinaryBody(path),
          "a path that takes a body gets it");

  const JsonCommand command(built.text);
  const std::string name = command.GetFunctionName();
  Require(FindFunctionName(path, request) == name, "the door reads the name that runs");
  const std::string_view glance = GlanceAtFunctionName(path, request);
  Require(glance.empty() || name.empty() || name == glance, "a glance sees what runs, or nothing");
  Require(command.IfKeyExist("id") || command.GetClientID().empty(), "no id without its key");
  Require((command.GetPropertyType() == "") == !command.IfKeyExist("property"),
          "a property is read or set");
  command.GetCmdId();
  command.GetVersion();

  const ParamStack stack = ConvertedParameters(command);
  if (std::count(built.text.begin(), built.text.end(), '[') +
          std::count(built.text.begin(), built.text.end(), '{') >
      kManyLevels) {
    return 0;
  }
  const JsonCommand reply(JsonCommand::Encode(command.GetClientID(), name, stack,
                                              command.GetCommandType() == COMMAND_EVENT, -2200,
                                              "no \"such\" function"));
  Require(reply.IfKeyExist("id") && reply.IfKeyExist("description"), "a reply is a JSON object");
  Require(reply.IfKeyExist("result") == !stack.empty(), "results are in the reply");
  return 0;
}
