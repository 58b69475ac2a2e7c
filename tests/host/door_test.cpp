// The door's tables: which hosts, origins and commands pass.
#include "host/door.h"

#include <gtest/gtest.h>

namespace {

using host::Door, host::Entry, host::Rights;
using Headers = std::vector<std::string>;

constexpr const char* kReboot = R"({"id":"1","method":"Reboot","parameter":[]})";
constexpr const char* kInfo = R"({"id":"1","method":"GetServerInfo","parameter":[]})";

class DoorTest : public ::testing::Test {
 protected:
  DoorTest() { door.SetOwnPorts({18625, 80}, {18626}); }

  host::OriginLists lists{.allowed = " https://ask.example ,https://both.example,,",
                          .manage = "https://both.example,\thttps://manage.example:8443\t",
                          .anyMayAsk = false};
  Door door{[this] { return lists; }};
};

TEST_F(DoorTest, OnlyThisMachineByNameAndPort) {
  const struct {
    Headers hosts;
    int port;
    bool secure;
    bool passes;
  } cases[] = {
      {{"localhost:18625"}, 18625, false, true},
      {{"LocalHost:18625"}, 18625, false, true},
      {{"[::1]:18625"}, 18625, false, true},
      {{"localhost"}, 80, false, true},
      {{"localhost"}, 443, true, true},
      {{"localhost"}, 443, false, false},
      {{"localhost"}, 18625, false, false},
      {{"localhost:18626"}, 18625, false, false},
      {{"localhost.:18625"}, 18625, false, false},
      {{"evil.example:18625"}, 18625, false, false},
      {{"localhost:18625@evil.example"}, 18625, false, false},
      {{"::1:18625"}, 18625, false, false},
      {{}, 18625, false, false},
      {{"localhost:18625", "localhost:18625"}, 18625, false, false},
  };
  for (const auto& c : cases) {
    const Entry entry = door.Judge(c.hosts, {}, c.port, c.secure);
    EXPECT_EQ(entry.rights, c.passes ? Rights::Manage : Rights::None)
        << (c.hosts.empty() ? "no host" : c.hosts.front()) << " on " << c.port;
    EXPECT_EQ(entry.refusal.empty(), c.passes);
  }
}

TEST_F(DoorTest, OriginsAreComparedWhole) {
  const struct {
    Headers origins;
    Rights rights;
    Rights rightsWhenAnyMayAsk;
  } cases[] = {
      {{}, Rights::Manage, Rights::Manage},
      {{"http://127.0.0.1:18625"}, Rights::Manage, Rights::Manage},
      {{"https://[::1]:18626"}, Rights::Manage, Rights::Manage},
      {{"http://localhost"}, Rights::Manage, Rights::Manage},  // port 80 is one of the own
      {{"https://localhost:18625"}, Rights::None, Rights::Ask},
      {{"https://ask.example"}, Rights::Ask, Rights::Ask},
      {{"https://both.example"}, Rights::Manage, Rights::Manage},
      {{"https://manage.example:8443"}, Rights::Manage, Rights::Manage},
      {{"https://manage.example"}, Rights::None, Rights::Ask},
      {{"http://ask.example"}, Rights::None, Rights::Ask},
      {{"https://ask.example.evil"}, Rights::None, Rights::Ask},
      {{"https://ask.example ,https://both.example"}, Rights::None, Rights::Ask},
      {{"null"}, Rights::None, Rights::None},
      {{"https://ask.example", "https://both.example"}, Rights::None, Rights::None},
  };
  for (const bool any : {false, true}) {
    lists.anyMayAsk = any;
    for (const auto& c : cases) {
      const Entry entry = door.Judge({"localhost:18625"}, c.origins, 18625, false);
      EXPECT_EQ(entry.rights, any ? c.rightsWhenAnyMayAsk : c.rights)
          << (c.origins.empty() ? "no origin" : c.origins.front()) << " any may ask: " << any;
      EXPECT_EQ(entry.refusal.empty(), entry.rights != Rights::None);
    }
  }
  lists.allowed += ",null";
  EXPECT_EQ(door.RightsOf("null"), Rights::None) << "no list can mean one page without an origin";
}

TEST_F(DoorTest, PortsThatMovedAwayLoseTheirRights) {
  door.SetOwnPorts({20000}, {});
  EXPECT_EQ(door.RightsOf("http://localhost:18625"), Rights::None);
  EXPECT_EQ(door.RightsOf("https://localhost:18626"), Rights::None);
  EXPECT_EQ(door.RightsOf("http://localhost:20000"), Rights::Manage);
}

TEST_F(DoorTest, AskingOriginsDoNotManageWhateverTheFormOfTheCommand) {
  const struct {
    const char* path;
    std::string text;
    bool refused;
  } cases[] = {
      {"/qtp/", kInfo, false},
      {"/qtp/", kReboot, true},
      {"/qtp/x?y", std::string(kReboot) + "\r\n\r\nbody", true},
      {"/qtp/", R"({"property":"SetServerInfo","parameter":["h",1,2,3,4]})", true},
      {"/qtp/", R"({"method":"SetmDNSService"})", true},
      {"/qtp/", R"({"method":"SetmDNSQueryService"})", true},
      {"/qtp/", R"({"method":"AddFirewall"})", true},
      {"/qtp/", R"({"method":"ChangePort"})", true},
      {"/qtp/", R"({"event":"Reboot","method":"GetServerInfo"})", true},
      {"/qtp/", R"({"method":"Reboot","event":"GetServerInfo"})", false},
      {"/qtp/", R"({"method":"GetServerInfo","method":"Reboot"})", true},
      {"/qtp/", R"({"method":"\u0052eboot"})", true},
      {"/qtp/", R"(/* x */ {"method":"Reboot"})", true},
      {"/qtp/", R"({"method":"reboot"})", false},  // no such function
      {"/qtp/LoadZipFromBytes?type=2&qvver=1&", "", true},
      {"/x/LoadZipFromBytes?type=2&qvver=1&", kInfo, true},
      {"/CheckUpdateFile?qvver=1&", R"({"id":"5","method":"Reboot","parameter":["a",]})", true},
      {"/elsewhere", kReboot, false},  // runs nothing
  };
  for (const auto& c : cases) {
    const std::string refusal =
        door.RefuseCommand("https://ask.example", Rights::Ask, c.path, c.text);
    EXPECT_EQ(!refusal.empty(), c.refused) << c.path << " " << c.text;
    EXPECT_EQ(door.RefuseCommand("https://both.example", Rights::Manage, c.path, c.text), "");
  }
}

}  // namespace
