#include "command/json_command.h"

#include <climits>

#include "support/testing.h"

namespace {

TEST(JsonCommand, FindsTheFunctionOfACommand) {
  for (const auto& [text, type, name] : Table<const char*, int, const char*>{
           {R"({"method":"A","event":"B"})", COMMAND_EVENT, "B"},
           {R"({"property":"P","method":"A"})", COMMAND_METHOD, "A"},
           {R"({"property":"P"})", COMMAND_PROPERTY, "P"},
           {R"({"Method":"A"})", COMMAND_NONE, ""},
           {R"({"method":{"x":1}})", COMMAND_METHOD, ""},
           {R"({"method":5})", COMMAND_METHOD, "5"},
           {"\"method\"", COMMAND_NONE, ""},
           {R"({"method":"A",})", COMMAND_NONE, ""}}) {
    const JsonCommand command(text);
    EXPECT_EQ(command.GetCommandType(), type) << text;
    EXPECT_EQ(command.GetFunctionName(), name) << text;
  }
}

TEST(JsonCommand, TellsItsPartsAndParameters) {
  const JsonCommand command(R"({"id":7,"cmdId":"c","version":"v","property":"P",)"
                            R"("parameter":[null,true,-1,4000000000,1.5,"s",[],{}]})");
  EXPECT_EQ(command.GetClientID() + command.GetCmdId() + command.GetVersion(), "7cv");
  EXPECT_TRUE(command.IfKeyExist("id") && !command.IfKeyExist("ID"));
  EXPECT_EQ(command.GetPropertyType(), "set");
  EXPECT_EQ(JsonCommand(R"({"property":"P"})").GetPropertyType(), "get");
  EXPECT_EQ(JsonCommand(R"({"method":"M","parameter":[]})").GetPropertyType(), "");
  const ParameterType types[] = {PARAMETER_NULL,  PARAMETER_BOOL,   PARAMETER_INT,
                                 PARAMETER_UINT,  PARAMETER_DOUBLE, PARAMETER_STRING,
                                 PARAMETER_ARRAY, PARAMETER_OBJECT, PARAMETER_MISSING};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(command.GetParameterType(i), types[i]) << i;
  EXPECT_EQ(command.GetParameterCount(), 8);
  EXPECT_EQ(command.GetParameterType(-1), PARAMETER_MISSING);
  EXPECT_EQ(command.GetParameter(8), nullptr);
  const JsonCommand members(R"({"parameter":{"a":1,"b":2}})");
  EXPECT_EQ(members.GetParameterCount(), 2);
  EXPECT_EQ(members.GetParameter(0), nullptr);
}

TEST(JsonCommand, WritesRepliesOfASession) {
  ParamStack stack;
  stack.push_back(std::make_unique<Json::Value>(1));
  stack.push_back(nullptr);
  for (const auto& [isEvent, code, told] : Table<bool, int, std::string>{
           {true, 0, R"("description":"Successful","event":"N","exception":0)"},
           {false, -5, R"("description":"why","exception":-5,"method":"N")"}}) {
    std::string reply = JsonCommand::Encode("s", "o", "N", stack, isEvent, code, "why");
    std::erase_if(reply, [](char c) { return c == ' ' || c == '\t' || c == '\n'; });
    EXPECT_EQ(reply, "{" + told + R"(,"object":"o","result":[1,null],"session":"s"})");
  }
}

TEST(JsonCommand, RefusesTextsThatGrowWhenTheyAreWrittenBack) {
  const auto isCommand = [](const std::string& parameters) {
    return JsonCommand(R"({"method":"M","parameter":[)" + parameters + "]}").GetCommandType() ==
           COMMAND_METHOD;
  };
  const std::string tower = Times(700, "[") + Times(700, "]");
  const std::string towers = Times(20, tower + ",") + "1";
  const std::string brackets = Times(100000, "[");
  for (const std::string& text : {tower, Times(99'900, "1,") + "1", '"' + brackets + '"',
                                  "\"\\\"" + brackets + '"', "/*" + brackets + "*/1"}) {
    EXPECT_TRUE(isCommand(text)) << text.substr(0, 20);
  }
  for (const std::string& text :
       {towers, Times(600, "[") + Times(1000, "1,") + "1" + Times(600, "]"),
        Times(1001, "[") + Times(1001, "]"), brackets, Times(100'000, "1,") + "1",
        "/*\"*/" + towers, "//\"\n" + towers, "//\r" + towers, "\"x\\\\\"," + towers}) {
    EXPECT_FALSE(isCommand(text)) << text.substr(0, 20);
  }
}

TEST(JsonCommand, ConvertsParameters) {
  constexpr int kKept = 99;
  for (const auto& [json, isText, text, isInt, number, isBool, flag] :
       Table<std::string, bool, std::string, bool, int, bool, int>{
           {"0", true, "0.000000", true, 0, true, 0},
           {"-2.9", true, "-2.900000", true, -2, true, 1},
           {"-4000000000", true, "-4000000000.000000", true, INT_MIN, true, 1},
           {"4000000000", true, "4000000000.000000", true, INT_MAX, true, 1},
           {R"("0")", true, "0", true, 0, false, kKept},
           {R"("00")", true, "00", false, -1, false, kKept},
           {R"("12abc")", true, "12abc", true, 12, false, kKept},
           {R"("99999999999")", true, "99999999999", true, INT_MAX, false, kKept},
           {R"("TRUE")", true, "TRUE", false, -1, true, kKept},
           {R"("true\u0000x")", true, std::string("true\0x", 6), false, -1, false, kKept},
           {"true", true, "true", false, -1, true, 1},
           {"null", true, "NULL", false, -1, true, 0},
           {"[1]", true, "[\n\t1\n]\n", false, -1, false, kKept},
           {"{}", false, "", false, -1, false, kKept}}) {
    const auto value = JsonCommand(R"({"parameter":[)" + json + "]}").GetParameter(0);
    std::string asText = "x";
    int asInt = kKept;
    signed char asFlag = kKept;
    EXPECT_EQ(JsonCommand::GetUTF8String(value.get(), &asText), isText) << json;
    EXPECT_EQ(JsonCommand::ConvertInt(value.get(), &asInt), isInt) << json;
    EXPECT_EQ(JsonCommand::ConvertBOOL(value.get(), &asFlag), isBool) << json;
    EXPECT_EQ(std::tuple(asText, asInt, asFlag), std::tuple(text, number, flag)) << json;
  }
  std::string asText;
  EXPECT_TRUE(JsonCommand::GetUTF8String(std::make_unique<Json::Value>(1e300).get(), &asText));
  EXPECT_EQ(asText.size(), 255u) << "cut to what fits";
}

}  // namespace
