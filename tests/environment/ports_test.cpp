#include "environment/ports.h"

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/testing.h"

namespace {

class Ports : public ::testing::Test {
 protected:
  Ports() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
    Spit(GetUserConfigFile(), "");
  }
};

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
  SavePort(PortMap{}, PLAIN_PORT_KEY);
  EXPECT_TRUE(ReadNoSSLPort(true).empty());
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

TEST_F(Ports, OfAUserAndItsWishToEndAreKeptInItsSection) {
  SavePort("u", "hvn", false, false, 1);
  SavePort("u", "hvn", true, true, 2);
  SavePort("v", "hvn", true, false, 3);
  SetUserProcessExitFlag("u", true);
  SetUserProcessExitFlag("v", false);
  EXPECT_EQ(Slurp(GetUserConfigFile()),
            "[u]\nExitFlag=TRUE\nhvn=1\nhvn_ssl=2\nhvn_ssl_def=2\n"
            "[v]\nExitFlag=FALSE\nhvn=3\nhvn_def=3\n");
  for (const auto& [section, isDefault, isSecure, port] :
       Table<const char*, bool, bool, int>{{"u", false, false, 1},
                                           {"u", true, false, 0},
                                           {"u", false, true, 2},
                                           {"u", true, true, 2},
                                           {"v", true, false, 3},
                                           {"v", true, true, 0},
                                           {"w", false, false, 0}}) {
    EXPECT_EQ(GetPort(section, "hvn", isDefault, isSecure), port) << section << isDefault;
  }
  EXPECT_EQ(GetPort("u", "qtp", false, false), 0);
  for (const char* user : {"u", "v", "w"}) EXPECT_EQ(GetUserProcessExitFlag(user), user[0] == 'u');
  EXPECT_EQ(Slurp(GetInitFile()), "");
  fs::remove(GetUserConfigFile());
  fs::create_directory(GetUserConfigFile());
  EXPECT_FALSE(SavePort("u", "hvn", true, false, 4) || SetUserProcessExitFlag("u", true));
  fs::remove(GetUserConfigFile());
}

TEST_F(Ports, OfAUsersProcessAreItsOwnInTwoModesOnly) {
  using List = std::vector<int>;
  for (const auto& [mode, stored, ports] : Table<WorkMode, std::string, List>{
           {WorkMode::OwnPorts, "hvn_ssl=5\nqtp_ssl=6\n", {6, 5}},
           {WorkMode::UserPorts, "hvn_ssl=5\nqtp_ssl=0\nqtp=7\n", {5}},
           {WorkMode::OwnPorts, "", {}},
           {WorkMode::Service, "hvn_ssl=5\n", {}},
           {WorkMode::InPageControl, "hvn_ssl=5\n", {}}}) {
    Spit(GetUserConfigFile(), "[]\n" + stored + "[QV]\nhvn_ssl=1\n");
    SetProcessMode(mode);
    EXPECT_EQ(ReadUserSSLPort(), ports) << static_cast<int>(mode);
  }
  SetProcessMode(WorkMode::Service);
}

TEST_F(Ports, AreUsedIfAFileNamesTheirDigitsAnywhere) {
  const TempFolder folder;
  Spit(folder / "a", std::string("listen 8080;\0"
                                 "17",
                                 15));
  for (const auto& [file, port, isUsed] : Table<std::string, int, bool>{{folder / "a", 8080, true},
                                                                        {folder / "a", 80, true},
                                                                        {folder / "a", 81, false},
                                                                        {folder / "a", 17, false},
                                                                        {folder / "b", 80, false},
                                                                        {folder / "", 80, false}}) {
    EXPECT_EQ(PortIsUsed(file.c_str(), port), isUsed) << file << port;
  }
  EXPECT_EQ(PortIsUsed(80), 0);
}

}  // namespace
