#include "environment/configuration.h"

#include "environment/paths.h"
#include "environment/ports.h"
#include "environment/program_information.h"
#include "support/testing.h"

namespace {

class Configuration : public ::testing::Test {
 protected:
  Configuration() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
  }
  static std::string Text(const char* key, const char* def = "", const char* section = nullptr) {
    return GetConfigurationfromInitFile(key, def, section);
  }
};
using Ports = Configuration;

TEST_F(Configuration, ReadsEachValueOrItsDefault) {
  Spit(GetInitFile(), "[QV]\nText=stored\nEmpty=\n[]\nText=nameless\n");
  EXPECT_EQ(Text("Text"), "stored");
  EXPECT_EQ(Text("Text", "x", ""), "nameless");
  EXPECT_EQ(Text("Text", "x", "missing"), "x");
  EXPECT_EQ(Text("Empty", "x"), "x");
  EXPECT_EQ(Text("Missing", nullptr), "");
  SetConfigurationToInitFile("Long", std::string(3000, 'v').c_str(), DEFAULT_SECTION);
  EXPECT_EQ(Text("Long"), std::string(2046, 'v'));
  for (const char* stored : {"TRUE", "True", "1", "yes", "FALSE"}) {
    SetConfigurationToInitFile("Flag", stored, DEFAULT_SECTION);
    EXPECT_EQ(GetConfigurationfromInitFile("Flag", "TRUE"), stored[0] == 'T') << stored;
  }
}

TEST_F(Ports, AreStoredInDescendingOrderAndReadBack) {
  SetNoSSLPort(18625, "qtp");
  SetNoSSLPort(20100, "hvn");
  SetSSLPort(18626, "qtp");
  EXPECT_EQ(Slurp(GetInitFile()),
            "[QV]\nPort=2\nPort_mn_0=qtp\nPort_mn_1=hvn\nPort_mp_0=18625\nPort_mp_1=20100\n"
            "SSLPort=1\nSSLPort_mn_0=qtp\nSSLPort_mp_0=18626\n");
  EXPECT_EQ(ReadNoSSLPort(true), (PortMap{{"hvn", 20100}, {"qtp", 18625}}));
  EXPECT_EQ(GetSSLPort("qtp", true), 18626);
  SavePort(PortMap{{"hvn", 1}}, PLAIN_PORT_KEY);  // leaves the second entry behind
  EXPECT_EQ(ReadNoSSLPort(true), (PortMap{{"hvn", 1}}));
  EXPECT_EQ(ReadNoSSLPort(false), (PortMap{{"hvn", 20100}}));
}

TEST_F(Ports, AreReadUpToTheCountOrTheFirstGap) {
  std::string text = "[QV]\nPort=99999999\n";
  for (int i = 0; i < 12; ++i) {
    const std::string n = std::to_string(i);
    text += "Port_mn_" + n + "=m" + n + "\nPort_mp_" + n + "=" + (i == 3 ? "x" : n) + "\n";
  }
  Spit(GetInitFile(), text);
  EXPECT_EQ(ReadNoSSLPort(true).size(), 12u);
  EXPECT_EQ(ReadNoSSLPort(false).size(), 10u);
  EXPECT_EQ(GetNoSSLPort("m3", true), 0);
  Spit(GetInitFile(), "[QV]\nPort=-4\nPort_mn_0=a\nPort_mp_0=99999999999\n");
  EXPECT_TRUE(ReadNoSSLPort(true).empty());
  EXPECT_EQ(GetNoSSLPort("a", false), 2147483647);
}

}  // namespace
