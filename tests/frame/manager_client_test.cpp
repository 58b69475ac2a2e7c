#include "manager/manager_client.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/ports.h"
#include "environment/program_information.h"
#include "frame/host_double.h"
#include "support/temp_folder.h"

namespace {

class ManagerClientTest : public ::testing::Test {
 protected:
  ManagerClientTest() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
    HostDouble::asked.clear();
  }

  std::string Run(const std::string& method, const std::string& parameters, int browserType = 1) {
    HostDouble host;
    host.result = 5;
    const auto request = host.Request(
        R"({"id":"1","method":")" + method + R"(","parameter":)" + parameters + "}", browserType);
    EXPECT_EQ(manager_.Function(request.get()), 5) << method;
    EXPECT_EQ(host.sent.size(), 1u) << method;
    return host.sent.empty() ? "" : host.sent[0].text;
  }

  // The reply as "code description last-value".
  std::string Outcome(const std::string& method, const std::string& parameters,
                      int browserType = 1) {
    Json::Value reply;
    EXPECT_TRUE(Json::Reader().parse(Run(method, parameters, browserType), reply));
    const Json::Value& result = reply["result"];
    return reply["exception"].asString() + "|" + reply["description"].asString() + "|" +
           (result.empty() ? "" : result[result.size() - 1].asString());
  }

  ManagerClient manager_;
};

TEST_F(ManagerClientTest, AnswersEachCommand) {
  const std::string notFound = "-2200|Function not found|false";
  const std::string tooFew = "-2202|Invalid parameter count.|false";
  const struct {
    const char *method, *parameters;
    std::string outcome;
  } kCommands[] = {
      {"ChangePort", "[1,2]", "||true"},
      {"AddFirewall", "[]", "||false"},
      {"Reboot", "[]", "||true"},
      {"CheckHVNPort", R"(["h",1,2])", "||true"},
      {"CheckHVNPort", R"(["h",1])", tooFew},
      {"SetServerInfo", R"(["h",1,2,3])", tooFew},
      {"GetPorts", "[]", tooFew},
      {"GetPorts", R"(["unknown"])", "-2408|User SID is empty.|false"},
      {"GetPorts", "[{}]", "-2408|User SID is empty.|false"},
      {"getports", "[]", notFound},
      {"GetServiceInfo", "[]", notFound},
      {"", "[]", notFound},
  };
  for (const auto& [method, parameters, outcome] : kCommands) {
    EXPECT_EQ(Outcome(method, parameters), outcome) << method << parameters;
  }
  EXPECT_EQ(Run("GetLocalIP", "[]"), "[]");
  EXPECT_EQ(HostDouble::asked, std::vector<std::string>{"restartService"});
}

TEST_F(ManagerClientTest, EmptiesTheListOfACheckedPort) {
  EXPECT_EQ(Run("CheckHVNPort", R"(["h",1,2])").find("\"h\""), std::string::npos);
  EXPECT_EQ(Run("CheckHVNPort", R"([{},1,2])"), "{}");
  EXPECT_EQ(Run("CheckHVNPort", R"(["h",1,"x"])"), "{}");
}

TEST_F(ManagerClientTest, ReadsAndChangesTheServer) {
  EXPECT_EQ(Run("GetServerInfo", "[]"),
            R"({"Host":"","hvn":{"port":"-1","sslPort":"-1"},"qtp":{"port":"-1","sslPort":"-1"}})");
  const std::string set =
      R"({"Host":"h","hvn":{"port":"3","sslPort":"4"},"qtp":{"port":"1","sslPort":"2"}})";
  EXPECT_EQ(Run("SetServerInfo", R"(["h",1,"2",3.9,4,"ignored"])"), set);
  EXPECT_EQ(Run("GetServerInfo", "[]"), set);
  EXPECT_EQ(GetNoSSLPort("hvn", true), 3);
  EXPECT_EQ(GetSSLPort("qtp", true), 2);
  const std::string before = Slurp(GetInitFile());
  for (const char* wrong : {R"(["x","p",2,3,4])", R"([{},1,2,3,4])", R"(["x",1,2,3,null])"}) {
    EXPECT_EQ(Run("SetServerInfo", wrong), "{}");
  }
  EXPECT_EQ(Slurp(GetInitFile()), before) << "a refused command changed something";
}

TEST_F(ManagerClientTest, EchoesTheCommandOfAnUnknownClientUnrun) {
  EXPECT_EQ(Outcome("Reboot", "[]", 0),
            "-2205|Unsupported browser client. Please try Halvorn Suite plugin edition for chrome "
            "in Chrome!|false");
  EXPECT_NE(Run("Reboot", "[\"kept\"]", 0).find("\"kept\""), std::string::npos);
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
  HttpParamRequest request(1, &host, R"({"method":"Reboot"})", 1, 0, "", &HostDouble::Wrap,
                           &HostDouble::Take, &RunAnother, nullptr, nullptr, nullptr, 0, true);
  manager_.Function(&request);
  EXPECT_EQ(host.sent.at(0).text.find("exception"), std::string::npos) << host.sent[0].text;
}

TEST_F(ManagerClientTest, StoresWhatItEchoes) {
  EXPECT_EQ(Run("SetServerInfo", R"(["a\nb\u0000c\r",1,2,3,4])"),
            R"({"Host":"abc","hvn":{"port":"3","sslPort":"4"},"qtp":{"port":"1","sslPort":"2"}})");
  EXPECT_EQ(GetConfigurationfromInitFile("Server", "", DEFAULT_SECTION), "abc");
}

TEST_F(ManagerClientTest, KnowsUsersAndTheirPorts) {
  EXPECT_EQ(manager_.GetUserSIDBySock(4), "");
  SavePort("ann", "qtp", false, true, 7);
  const auto ports = manager_.GetAllListenPorts("ann");
  EXPECT_EQ(ports.size(), 2u);
  EXPECT_EQ(ports.at("qtp").sslPort, 7);
  EXPECT_EQ(ports.at("qtp").port, 0);
  manager_.CloseUserProcess("ann");
  EXPECT_TRUE(GetUserProcessExitFlag("ann"));
  const struct {
    const char* text;
    int hash;
  } kHashes[] = {{"", 0}, {"a", 97}, {"ab", 97 * 33 + 98}, {"\xFF", -1}, {"zzzzzzzz", 1813671632}};
  for (const auto& [text, hash] : kHashes)
    EXPECT_EQ(ManagerClient::GetHashCode(text), hash) << text;
}

TEST_F(ManagerClientTest, KeepsTheLastErrorBounded) {
  ManagerClient::SetErrorInfo(-1, std::string(5000, 'x').c_str());
  EXPECT_EQ(ManagerClient::GetErrorMessage(), std::string(1023, 'x'));
}

}  // namespace
