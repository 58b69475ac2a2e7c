#include "manager/manager_client.h"

#include "environment/ports.h"
#include "frame/host_double.h"
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
  const std::string notFound = "-2200|Function not found|false";
  for (const auto& [method, parameters, outcome] : Table<const char*, const char*, std::string>{
           {"ChangePort", "[1,2]", "||true"},
           {"AddFirewall", "[]", "||false"},
           {"Reboot", "[]", "||true"},
           {"CheckHVNPort", R"(["h",1,2])", "||true"},
           {"GetPorts", "[]", "-2202|Invalid parameter count.|false"},
           {"GetPorts", R"(["unknown"])", "-2408|User SID is empty.|false"},
           {"getports", "[]", notFound},
           {"", "[]", notFound}}) {
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
}

TEST_F(ManagerClientTest, EchoesTheCommandOfAnUnknownClientUnrun) {
  EXPECT_EQ(Outcome("Reboot", "[]", 0),
            "-2205|Unsupported browser client. Please try Halvorn Suite plugin edition for chrome "
            "in Chrome!|false");
  EXPECT_NE(Reply("Reboot", "[\"kept\"]", 0).find("\"kept\""), std::string::npos);
  EXPECT_TRUE(HostDouble::asked.empty());
}

// A host that, while it is asked for a restart, runs another command that fails.
ManagerClient* g_nested = nullptr;

int RunAnother(const char*, const char*, const char*, void*, unsigned int*) {
  HostDouble host;
  return g_nested->Function(host.Request(R"({"method":"GetPorts","parameter":["x"]})").get());
}

TEST_F(ManagerClientTest, KeepsItsOwnErrorWhenTheHostRunsAnotherCommand) {
  g_nested = &manager_;
  HostDouble host;
  manager_.Function(host.Request(R"({"method":"Reboot"})", 1, 1, &RunAnother).get());
  EXPECT_EQ(host.sent.at(0).text.find("exception"), std::string::npos) << host.sent[0].text;
}

TEST_F(ManagerClientTest, KnowsUsersAndTheirPorts) {
  SavePort("ann", "qtp", false, true, 7);
  const auto ports = manager_.GetAllListenPorts("ann");
  EXPECT_EQ(ports.at("qtp").sslPort - ports.at("qtp").port, 7);
  manager_.CloseUserProcess("ann");
  EXPECT_TRUE(GetUserProcessExitFlag("ann"));
  EXPECT_EQ(ManagerClient::GetHashCode("zzzzzzz\xFF"), 1813671509);
}

}  // namespace
