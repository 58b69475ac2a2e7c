#include "environment/mdns_settings.h"

#include "environment/configuration.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/testing.h"

namespace {

class DiscoverySettings : public ::testing::Test {
 protected:
  DiscoverySettings() {
    InitProgramInfo();
    Spit(GetInitFile(), "");
  }
  static std::string Advertised() {
    std::string alias = "old", tags = "old";
    int accessMode = 7;
    const bool isOn = GetEnablemDNSService(alias, tags, accessMode);
    EXPECT_EQ(isOn, GetEnablemDNSService());
    return std::string(isOn ? "on|" : "off|") + alias + "|" + tags + "|" +
           std::to_string(accessMode) + "|" + GetmDNSServicePwd();
  }
  static std::string Browsed() {
    std::string address = "old", cert = "old", key = "old";
    int port = 7, sslPort = 7;
    const bool isOn = GetEnablemDNSQueryService(address, port, sslPort, cert, key);
    EXPECT_EQ(isOn, GetEnablemDNSQueryService());
    return std::string(isOn ? "on|" : "off|") + address + "|" + std::to_string(port) + "|" +
           std::to_string(sslPort) + "|" + cert + "|" + key;
  }
};

TEST_F(DiscoverySettings, BoundTheAnswersOfASecond) {
  for (const auto& [stored, answers] : Table<const char*, int>{{"", 1000},
                                                               {"1", 1},
                                                               {"10000000", 10000000},
                                                               {"10000001", 1000},
                                                               {"-1", 1000},
                                                               {"x", 1000}}) {
    SetConfigurationToInitFile("mDNSAnswersPerSecond", stored, DEFAULT_SECTION);
    EXPECT_EQ(GetmDNSAnswersPerSecond(), answers) << stored;
  }
}

TEST_F(DiscoverySettings, OfTheAdvertisedServiceAreKeptWhileItIsOff) {
  EXPECT_EQ(Advertised(), "off|||-1|");
  for (const auto& [enable, alias, mode, password, told] :
       Table<bool, const char*, int, const char*, const char*>{
           {true, "a", 3, "p", "on|a|t|3|p"},
           {true, "b", -2, nullptr, "on|b|t|-2|p"},
           {false, "c", 4, "q", "off|||-1|p"},
           {true, "", 0, "", "on||t|0|"}}) {
    SetEnablemDNSService(enable, alias, "t", true, false, true, mode, password);
    EXPECT_EQ(Advertised(), told);
    EXPECT_EQ(GetConfigurationfromInitFile("Service_alias", "", nullptr), enable ? alias : "b");
  }
  for (const auto& [stored, mode] :
       Table<std::string, const char*>{{"", "-1"}, {"Service_am=abc\n", "0"}}) {
    Spit(GetInitFile(), "[QV]\nEnablemDNSService=true\n" + stored);
    EXPECT_EQ(Advertised(), std::string("on|||") + mode + "|");
  }
}

TEST_F(DiscoverySettings, OfTheBrowserAreStoredWhateverTheSwitch) {
  EXPECT_EQ(Browsed(), "off|old|7|7|old|old") << "nothing is filled while it is off";
  for (const auto& [enable, address, port, cert, key, told] :
       Table<bool, const char*, int, const char*, const char*, const char*>{
           {true, "10.0.0.1", 80, "c", "k", "on|10.0.0.1|80|443|c|k"},
           {true, nullptr, 81, nullptr, "l", "on|10.0.0.1|81|443|c|l"},
           {false, "10.0.0.2", 82, "d", nullptr, "off|old|7|7|old|old"},
           {true, nullptr, 82, nullptr, nullptr, "on|10.0.0.2|82|443|d|l"}}) {
    SetEnablemDNSQUeryService(enable, address, port, 443, cert, key);
    EXPECT_EQ(Browsed(), told);
  }
  Spit(GetInitFile(), "[QV]\nEnablemDNSQueryService=TRUE\nProxy_SSLPORT=x\n");
  EXPECT_EQ(Browsed(), "on||0|0||");
}

}  // namespace
