// The door's rules: which accounts, hosts, origins and commands pass.
#include "host/door.h"

#include <unistd.h>

#include "host/accounts.h"
#include "support/testing.h"

namespace {

using host::Door, host::Rights;
using Headers = std::vector<std::string>;

constexpr const char* kReboot = R"({"id":"1","method":"Reboot","parameter":[]})";
constexpr const char* kInfo = R"({"id":"1","method":"GetServerInfo","parameter":[]})";

class DoorTest : public ::testing::Test {
 protected:
  DoorTest() { door_.SetOwnPorts({18625, 80}, {18626}); }

  Rights Judge(const Headers& hosts, const Headers& origins = {}, int port = 18625,
               bool secure = false) {
    Rights own = Rights::None;
    for (const Rights most : {Rights::None, Rights::Ask, Rights::Manage}) {
      const host::Entry entry = door_.Judge({hosts, origins, port, secure, "", most});
      EXPECT_EQ(entry.refusal.empty(), entry.rights != Rights::None);
      EXPECT_LE(entry.rights, most) << "no origin lifts what the account may do";
      own = entry.rights;
    }
    return own;
  }
  /// Whether who may only ask is refused a command that no manager is.
  bool Refuses(const char* path, const std::string& text) {
    EXPECT_EQ(door_.RefuseCommand({"https://both.example"}, Rights::Manage, path, text), "");
    const auto refuse = [&](const host::Caller& caller) {
      return door_.RefuseCommand(caller, Rights::Ask, path, text);
    };
    const std::string page = refuse({"https://ask.example"}), other = refuse({{}, Rights::Ask});
    EXPECT_EQ(page, refuse({"https://ask.example", Rights::Manage, true})) << "worth nothing there";
    EXPECT_EQ(page.empty(), other.empty()) << text;
    EXPECT_LT(std::max(page.size(), other.size()), 300u) << "whatever the text has for a name";
    EXPECT_EQ(other.empty() || other.find("ManageUsers") != other.npos, true) << other;
    return !page.empty();
  }

  host::OriginLists lists_{.allowed = " https://ask.example ,https://both.example,,",
                           .manage = "https://both.example,\thttps://manage.example:8443\t",
                           .anyMayAsk = false};
  Door door_{[this] { return lists_; }, [](std::string_view text) { return text == "token"; }};
};

TEST_F(DoorTest, OnlyThisMachineByNameAndPort) {
  for (const char* host : {"localhost:18625", "LocalHost:18625", "[::1]:18625"}) {
    EXPECT_EQ(Judge({host}), Rights::Manage) << host;
  }
  for (const char* host : {"localhost", "localhost:18626", "localhost.:18625", "::1:18625",
                           "evil.example:18625", "localhost:18625@evil.example"}) {
    EXPECT_EQ(Judge({host}), Rights::None) << host;
  }
  EXPECT_EQ(Judge({}), Rights::None);
  EXPECT_EQ(Judge({"localhost:18625", "localhost:18625"}), Rights::None);
  EXPECT_EQ(Judge({"localhost"}, {}, 80, false), Rights::Manage);
  EXPECT_EQ(Judge({"localhost"}, {}, 443, true), Rights::Manage);
  EXPECT_EQ(Judge({"localhost"}, {}, 443, false), Rights::None);
}

TEST_F(DoorTest, OriginsAreComparedWhole) {
  const Headers host = {"localhost:18625"};
  for (const bool any : {false, true}) {
    lists_.anyMayAsk = any;
    for (const char* origin :
         {"http://127.0.0.1:18625", "https://[::1]:18626", "http://localhost"}) {  // at port 80
      EXPECT_EQ(Judge(host, {origin}), Rights::Ask) << origin;
    }
    for (const char* origin : {"https://both.example", "https://manage.example:8443"}) {
      EXPECT_EQ(Judge(host, {origin}), Rights::Manage) << origin;
    }
    for (const char* origin :
         {"https://localhost:18625", "https://manage.example", "http://ask.example",
          "https://ask.example.evil", "https://ask.example ,https://both.example"}) {
      EXPECT_EQ(Judge(host, {origin}), any ? Rights::Ask : Rights::None) << origin;
    }
    EXPECT_EQ(Judge(host, {"https://ask.example"}), Rights::Ask);
    EXPECT_EQ(Judge(host, {"https://ask.example", "https://both.example"}), Rights::None);
    EXPECT_EQ(Judge(host, {"null"}), Rights::None);
  }
  lists_.allowed += ",null";
  EXPECT_EQ(Judge(host, {"null"}), Rights::None) << "no list can mean one page without an origin";
  lists_.anyMayAsk = false;
  door_.SetOwnPorts({20000}, {});
  for (const char* moved : {"http://localhost:18625", "https://localhost:18626"}) {
    EXPECT_EQ(Judge(host, {moved}), Rights::None) << moved;
  }
  EXPECT_EQ(Judge(host, {"http://localhost:20000"}), Rights::Ask);
}

TEST_F(DoorTest, OwnPagesManageWithTheTokenAndNobodyElseIsHelpedByIt) {
  const Headers host = {"localhost:18625"};
  for (const auto& [origins, token, most, rights] : Table<Headers, const char*, Rights, Rights>{
           {{"http://localhost:18625"}, "token", Rights::Manage, Rights::Manage},
           {{"http://localhost:18625"}, "Token", Rights::Manage, Rights::Ask},
           {{"http://localhost:18625"}, "token", Rights::Ask, Rights::Ask},
           {{"http://localhost:18625"}, "token", Rights::None, Rights::None},
           {{"https://ask.example"}, "token", Rights::Manage, Rights::Ask},
           {{"https://x.example"}, "token", Rights::Manage, Rights::None},
           {{"null"}, "token", Rights::Manage, Rights::None},
           {{}, "token", Rights::Ask, Rights::Ask},
       }) {
    EXPECT_EQ(door_.Judge({host, origins, 18625, false, token, most}).rights, rights)
        << token << (origins.empty() ? "" : origins.front());
  }
  const Door without([] { return host::OriginLists(); });
  EXPECT_EQ(without.Judge({host, {}, 18625, false, "x"}).rights, Rights::Manage);
}

TEST_F(DoorTest, OnlyWhoManagesUploads) {
  for (const Rights rights : {Rights::Ask, Rights::Manage}) {
    for (const host::Caller& caller : {host::Caller{"http://localhost:18625"},
                                       host::Caller{"https://ask.example"}, host::Caller{}}) {
      EXPECT_EQ(door_.RefuseUpload(caller, rights).empty(), rights == Rights::Manage);
    }
  }
}

TEST_F(DoorTest, WithoutAnOriginPagesOfOtherSitesOnlyLook) {
  const Headers host = {"localhost:18625"};
  for (const auto& [origins, acts, rights] : Table<Headers, bool, Rights>{
           {{}, false, Rights::Manage},
           {{}, true, Rights::None},
           {{"https://ask.example"}, true, Rights::Ask},
           {{"https://both.example"}, true, Rights::Manage},
       }) {
    EXPECT_EQ(door_.Judge({host, origins, 18625, false, "", Rights::Manage, acts}).rights, rights);
  }
}

TEST_F(DoorTest, AskingOriginsDoNotManageWhateverTheFormOfTheCommand) {
  for (const char* text :
       {kReboot, R"({"property":"SetServerInfo","parameter":["h",1,2,3,4]})",
        R"({"method":"SetmDNSService"})", R"({"method":"SetmDNSQueryService"})",
        R"({"method":"AddFirewall"})", R"({"method":"ChangePort"})", R"({"method":"reboot"})",
        R"({"method":"CommandOfTomorrow"})", R"({"event":"Reboot","method":"GetServerInfo"})",
        R"({"method":"\u0052eboot"})", R"({"method":"GetServerInfo","method":"Reboot"})",
        R"(/* x */ {"method":"Reboot"})"}) {
    EXPECT_TRUE(Refuses("/qtp/", text)) << text;
    EXPECT_TRUE(Refuses("/qtp/x?y", std::string(text) + "\r\n\r\nbody")) << text;
    EXPECT_FALSE(Refuses("/elsewhere", text)) << "runs nothing";
  }
  for (const char* text :
       {kInfo, R"({"method":"Reboot","event":"GetServerInfo"})", R"({"id":"1"})", "no command"}) {
    EXPECT_FALSE(Refuses("/qtp/", text)) << text;
    EXPECT_TRUE(Refuses("/x/LoadZipFromBytes?type=2&qvver=1&", text));
  }
  EXPECT_FALSE(Refuses(R"(/LoadZipFromBytes?type=1],"event":"GetPorts","x":[1&)", ""));
  EXPECT_TRUE(Refuses("/CheckUpdateFile?qvver=1&", R"({"method":"Reboot","parameter":["a",]})"));
  const std::string longName(100'000, '\xFF');
  EXPECT_TRUE(Refuses("/qtp/", R"({"method":")" + longName + R"("})"));
}

TEST(Accounts, AreOursWhenTheyAreListed) {
  host::Accounts::Settings settings;
  host::Accounts accounts([&settings] { return settings; });
  constexpr uid_t kNobody = 65534;  // an account of every system, the only one of its group
  for (const bool othersMayAsk : {false, true}) {
    settings.othersMayAsk = othersMayAsk;
    const Rights other = othersMayAsk ? Rights::Ask : Rights::None;
    for (const auto& [list, account, rights] : Table<const char*, std::optional<uid_t>, Rights>{
             {"", ::geteuid(), Rights::Manage},
             {"", 0, Rights::Manage},
             {"", 41002, other},
             {"0,root,41003,@41002,41002x,-1,,@", 41002, other},
             {"x, 41002\t,y", 41002, Rights::Manage},
             {"nobody", kNobody, Rights::Manage},
             {"@65534", kNobody, Rights::Manage},
             {"@nogroup", kNobody, Rights::Manage},
             {"nogroup,@nobody,@root", kNobody, other},
             {"0,root,@0,@root,nobody,41002", std::nullopt, other},
         }) {
      settings.manageUsers = list;
      EXPECT_EQ(accounts.MostFor(account), rights) << list << " for " << account.value_or(7);
    }
  }
}

TEST(Accounts, AreToldByThisSystem) { EXPECT_TRUE(host::AreOwnersTold()); }

}  // namespace
