#include "manager/manager_client.h"

#include "environment/ports.h"
#include "support/host_double.h"
#include "support/testing.h"

namespace {

class ManagerClientTest : public Commands {
 protected:
  // The reply as "code description last-value".
  std::string Outcome(const std::string& method, const std::string& parameters,
                      int browserType = 1) {
    const Json::Value reply = Parsed(Reply(method, parameters, browserType));
    const Json::Value& result = reply["result"];
    return reply["exception"].asString() + "|" + reply["description"].asString() + "|" +
           (result.empty() ? "" : result[result.size() - 1].asString());
  }
};

TEST_F(ManagerClientTest, AnswersEachCommand) {
  for (const auto& [method, parameters, outcome] : Table<const char*, const char*, std::string>{
           {"ChangePort", "[1,2]", "||true"},
           {"AddFirewall", "[]", "||false"},
           {"Reboot", "[]", "||true"},
           {"CheckHVNPort", R"(["h",1,2])", "||true"},
           {"GetPorts", "[]", "-2202|Invalid parameter count.|false"},
           {"GetPorts", R"(["unknown"])", "-2408|User SID is empty.|false"},
           {"getports", "[]", "-2200|Function not found|false"}}) {
    EXPECT_EQ(Outcome(method, parameters), outcome) << method << parameters;
  }
  EXPECT_EQ(Reply("GetLocalIP", "[]"), "[]");
  EXPECT_EQ(Reply("CheckHVNPort", R"(["h",1,2])").find("\"h\""), std::string::npos);
  EXPECT_EQ(HostDouble::asked, std::vector<std::string>{"restartService"});
}

TEST_F(ManagerClientTest, ReadsAndChangesTheServer) {
  EXPECT_EQ(Reply("GetServerInfo", "[]"),
            R"({"Host":"","hvn":{"port":"-1","sslPort":"-1"},"qtp":{"port":"-1","sslPort":"-1"}})");
  const std::string longText(2045, 'x');
  for (const auto& [sent, stored] : Table<std::string, std::string>{
           {R"(a\nb\u0000c\r)", "abc"}, {longText + "\xC3\xA4", longText}, {"h", "h"}}) {
    const std::string text = "{\"Host\":\"" + stored +
                             R"(","hvn":{"port":"3","sslPort":"4"},)"
                             R"("qtp":{"port":"1","sslPort":"2"}})";
    EXPECT_EQ(Reply("SetServerInfo", "[\"" + sent + R"(",1,"2",3.9,4,"ignored"])"), text);
    EXPECT_EQ(Reply("GetServerInfo", "[]"), text);
    EXPECT_EQ(Stored("Server"), stored);
  }
  EXPECT_EQ(GetNoSSLPort("hvn", true), 3);
  EXPECT_EQ(GetSSLPort("qtp", true), 2);

  fs::remove(GetInitFile());
  fs::create_directory(GetInitFile());  // which nobody can write as a file
  EXPECT_EQ(Reply("SetServerInfo", R"(["h",1,2,3,4])"), Reply("GetServerInfo", "[]"))
      << "nothing was stored";
  fs::remove(GetInitFile());
}

TEST_F(ManagerClientTest, EchoesTheCommandOfAnUnknownClientUnrun) {
  EXPECT_EQ(Outcome("Reboot", "[]", 0),
            "-2205|Unsupported browser client. Please try Halvorn Suite plugin edition for chrome "
            "in Chrome!|false");
  EXPECT_NE(Reply("Reboot", "[\"kept\"]", 0).find("\"kept\""), std::string::npos);
  EXPECT_TRUE(HostDouble::asked.empty());
}

// The host runs another command while it is asked for something by the first.
TEST_F(ManagerClientTest, LeavesACommandsErrorToItWhateverRunsWithin) {
  static ManagerClient* manager;
  manager = &manager_;
  const auto runAnother = [](const char*, const char*, const char*, void*, unsigned int*) {
    HostDouble other;
    manager->Function(other.Request(R"({"id":"2","method":"GetPorts","parameter":["x"]})").get());
    EXPECT_NE(other.sent.at(0).text.find("-2408"), std::string::npos);
    return 0;
  };
  for (const int before : {0, -2201}) {
    ManagerClient::SetErrorInfo(before, "of an outer command");
    HostDouble host;
    const char* text = R"({"id":"1","method":"Reboot","parameter":[]})";
    manager_.Function(host.Request(text, 1, 3, runAnother).get());
    const Json::Value reply = Parsed(host.sent.at(0).text);
    EXPECT_FALSE(reply.isMember("exception")) << host.sent[0].text;
    EXPECT_EQ(ManagerClient::GetErrorCode(), before);
  }
}

}  // namespace
