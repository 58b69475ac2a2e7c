#include "frame/json_command.h"

#include <json/json.h>

#include <climits>
#include <optional>

#include "support/testing.h"

namespace {

TEST(JsonCommand, FindsTheFunctionOfACommand) {
  for (const auto& [text, type, name, property] : Table<const char*, int, const char*, const char*>{
           {R"({"method":"A","event":"B"})", COMMAND_EVENT, "B", ""},
           {R"({"property":"P","method":"A"})", COMMAND_METHOD, "A", "get"},
           {R"({"property":"P"})", COMMAND_PROPERTY, "P", "get"},
           {R"({"property":"P","parameter":[]})", COMMAND_PROPERTY, "P", "set"},
           {R"({"Method":"A"})", COMMAND_NONE, "", ""},
           {R"({"method":{"x":1}})", COMMAND_METHOD, "", ""},
           {R"({"method":5})", COMMAND_METHOD, "5", ""},
           {"\"method\"", COMMAND_NONE, "", ""},
           {R"({"method":"A",})", COMMAND_NONE, "", ""}}) {
    const JsonCommand command(text);
    EXPECT_EQ(command.GetCommandType(), type) << text;
    EXPECT_EQ(command.GetFunctionName(), name) << text;
    EXPECT_EQ(command.GetPropertyType(), property) << text;
  }
}

std::string Times(const std::string& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

TEST(JsonCommand, RefusesTextsThatGrowWhenTheyAreWrittenBack) {
  const std::string tower = Times("[", 900) + Times("]", 900);
  const std::string towers = Times(tower + ",", 20) + "1";
  for (const auto& [parameters, valid] :
       Table<std::string, bool>{{tower, true},
                                {towers, false},
                                {Times("[", 1001) + Times("]", 1001), false},
                                {Times("[", 100000), false},
                                {Times("1,", 1000000) + "1", true},
                                {Times("1,", 4000000) + "1", false},
                                {'"' + Times("[", 16 * 1024 * 1024) + '"', true},
                                {"\"\\\"" + Times("[", 100000) + '"', true},
                                {"/*\"*/" + towers, false},
                                {"//\"\n" + towers, false},
                                {"//\r" + towers, false},
                                {"/*" + Times("[", 100000) + "*/1", true},
                                {"\"x\\\\\"," + towers, false}}) {
    const JsonCommand command(R"({"method":"M","parameter":[)" + parameters + "]}");
    EXPECT_EQ(command.GetCommandType(), valid ? COMMAND_METHOD : COMMAND_NONE)
        << parameters.substr(0, 20);
  }
}

TEST(JsonCommand, TellsTheTypeOfEachParameter) {
  const JsonCommand command(
      R"({"parameter":[null,true,-5,4000000000,2.5,"s",[1],{"k":1},10000000000]})");
  int index = 0;
  for (const int type : {0, 1, 3, 4, 5, 6, 7, 8, 5}) {
    EXPECT_EQ(command.GetParameterType(index), type) << index;
    ++index;
  }
  for (const int i : {-1, 9, INT_MAX, INT_MIN}) EXPECT_EQ(command.GetParameterType(i), 9) << i;
  EXPECT_EQ(JsonCommand(R"({"parameter":{"a":1}})").GetParameter(0), nullptr);
}

TEST(JsonCommand, ConvertsParameters) {
  constexpr int kUnset = 99;
  const std::optional<std::string> kRefused;
  for (const auto& [json, text, isInt, number, isBool, flag] :
       Table<const char*, std::optional<std::string>, bool, int, bool, int>{
           {"0", "0.000000", true, 0, true, 0},
           {"-2.9", "-2.900000", true, -2, true, 1},
           {"-4000000000", "-4000000000.000000", true, INT_MIN, true, 1},
           {"4000000000", "4000000000.000000", true, INT_MAX, true, 1},
           {R"("0")", "0", true, 0, false, kUnset},
           {R"("00")", "00", false, -1, false, kUnset},
           {R"("12abc")", "12abc", true, 12, false, kUnset},
           {R"("99999999999")", "99999999999", true, INT_MAX, false, kUnset},
           {R"("TRUE")", "TRUE", false, -1, true, kUnset},
           {R"("true\u0000x")", std::string("true\0x", 6), false, -1, false, kUnset},
           {"true", "true", false, -1, true, 1},
           {"null", "NULL", false, -1, true, 0},
           {"[1]", "[\n\t1\n]\n", false, -1, false, kUnset},
           {"{}", kRefused, false, -1, false, kUnset}}) {
    const auto value = JsonCommand(R"({"parameter":[)" + std::string(json) + "]}").GetParameter(0);
    std::string asText = "x";
    int asInt = kUnset;
    signed char asFlag = kUnset;
    EXPECT_EQ(JsonCommand::GetUTF8String(value.get(), &asText), text.has_value()) << json;
    EXPECT_EQ(asText, text.value_or("")) << json;
    EXPECT_EQ(JsonCommand::ConvertInt(value.get(), &asInt), isInt) << json;
    EXPECT_EQ(asInt, number) << json;
    EXPECT_EQ(JsonCommand::ConvertBOOL(value.get(), &asFlag), isBool) << json;
    EXPECT_EQ(asFlag, flag) << json;
  }
  const Json::Value huge(1e300);
  std::string asText;
  EXPECT_TRUE(JsonCommand::GetUTF8String(&huge, &asText));
  EXPECT_EQ(asText.size(), 255u) << "cut to what fits";
}

TEST(JsonCommand, WritesReplies) {
  ParamStack stack;
  stack.push_back(std::make_unique<Json::Value>(5));
  stack.push_back(nullptr);
  EXPECT_EQ(JsonCommand::Encode("", "Foo", stack, true, -2205, "no"),
            "{\n\t\"description\" : \"no\",\n\t\"event\" : \"Foo\",\n\t\"exception\" : -2205,\n"
            "\t\"id\" : \"\",\n\t\"result\" : \n\t[\n\t\t5,\n\t\tnull\n\t]\n}\n");
}

}  // namespace
