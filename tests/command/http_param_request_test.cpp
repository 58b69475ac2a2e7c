#include "command/http_param_request.h"

#include "support/host_double.h"
#include "support/testing.h"

namespace {

struct HttpParamRequestTest : ::testing::Test {
  HostDouble host_;
};

TEST_F(HttpParamRequestTest, SendsParametersThenValuesAndTheLastCode) {
  auto request = host_.Request(R"({"id":"1","cmdId":"c1","method":"M","parameter":[5]})");
  request->GetResultStruct<int>(1, nullptr, 0, 0, "done");  // three values
  request->GetResultStruct(2L, nullptr, 0, 0, "");
  request->GetStringResultStruct("s", nullptr, 0, 0, "");
  request->AddStringResultParam("t", true, 0, "");
  EXPECT_TRUE(request->AddJsonStringResultParam(R"({"k":[1]})", false, 0, ""));
  EXPECT_FALSE(request->AddJsonStringResultParam("{", false, -1, "not taken"));
  EXPECT_FALSE(request->AddJsonStringResultParam(std::string(5000, '['), false, -1, "not taken"));
  request->GetBOOLResultStruct(7, nullptr, 0, -2201, "wrong");
  EXPECT_EQ(request->SendBackResult(), 1);
  EXPECT_EQ(host_.sent.at(0).connectionId, 3);
  EXPECT_EQ(host_.sent.at(0).text,
            "{\n\t\"description\" : \"wrong\",\n\t\"exception\" : -2201,\n\t\"id\" : \"1\",\n"
            "\t\"method\" : \"M\",\n\t\"result\" : \n\t[\n\t\t5,\n\t\t1,\n\t\t\"done\",\n"
            "\t\t\"Marvique Service Manager Module\",\n\t\t2,\n\t\t\"s\",\n\t\t\"t\",\n"
            "\t\t{\n\t\t\t\"k\" : \n\t\t\t[\n\t\t\t\t1\n\t\t\t]\n\t\t},\n\t\ttrue\n\t],\n"
            "\t\"cmdId\" : \"c1\"\n}\n");
}

TEST_F(HttpParamRequestTest, SendsTheLastBytesBesideTheReplyOnce) {
  auto request = host_.Request(R"({"id":"1","method":"M"})");
  const auto bytes = [](const char* text) { return reinterpret_cast<const unsigned char*>(text); };
  request->GetResultStruct<bool>(true, bytes("first"), 5, 0, "");
  request->GetResultStruct<bool>(true, bytes("second"), 6, 0, "");
  request->SendBackResult();
  request->SendBackResult();
  ASSERT_EQ(host_.sent.size(), 2u);
  EXPECT_EQ(host_.sent[0].data, "second");
  EXPECT_EQ(host_.sent[1].data, "");
}

TEST_F(HttpParamRequestTest, SendsToAConnectionThatHasACallbackOnly) {
  for (const auto& [connection, callback, isSent] : Table<int, SendBackFunc, bool>{
           {0, &HostDouble::Take, false}, {3, nullptr, false}, {-1, &HostDouble::Take, true}}) {
    host_.sent.clear();
    HttpParamRequest request(connection, &host_, "{}", 1, 0, "", &HostDouble::Wrap, callback,
                             nullptr, nullptr, nullptr, nullptr, 0, true);
    request.GetResultStructByJsonString("[]");
    EXPECT_EQ(request.SendBackResult(), isSent ? 1 : 0);
    EXPECT_EQ(host_.sent.size(), isSent ? 1u : 0u);
  }
}

TEST_F(HttpParamRequestTest, TakesAWholeTextAsItIs) {
  for (const auto& [text, sent] : Table<const char*, const char*>{
           {"[]", "[]"}, {"", ""}, {"{}", "{}"}, {"{\n}", "{,\n\t\"cmdId\" : \"c\"\n}"}}) {
    auto request = host_.Request(R"({"cmdId":"c","method":"M"})");
    request->GetResultStructByJsonString(text);
    request->SendBackResult();
    EXPECT_EQ(host_.sent.back().text, sent);
  }
}

}  // namespace
