#include "discovery/browser_worker.h"

#include "discovery/browser_loop.h"
#include "discovery/fake_network.h"
#include "support/testing.h"

namespace {

using namespace mdns_wrapper;
using mdns_packets::Built;
using namespace std::string_literals;

constexpr const char* kType = "_privet._tcp.local.";

/// What a scanner answers: its pointer, then address and text.
std::string Reply(const char* ipv4, const char* ty, const char* type = "twaindirect",
                  const mdns_lifetime& lifetime = MDNS_MULTICAST_ANSWER) {
  const std::string instance = std::string(ty) + "." + kType;
  const mdns_record_t pointer = {kType, mdns_ptr{instance}};
  const mdns_record_t records[] = {{"host.local.", mdns_packets::Ipv4(ipv4)},
                                   {instance, mdns_txt{"ty", ty}},
                                   {instance, mdns_txt{"tags", "red"}},
                                   {instance, mdns_txt{"url", "https://it"}},
                                   {instance, mdns_txt{"type", type}}};
  return Built([&](auto buffer) {
    return MakeMulticastAnswer(buffer, {&pointer, 1}, records, lifetime);
  });
}

/// A goodbye of nothing but the pointer, to a name in capitals.
std::string PointerGoodbye() {
  const mdns_record_t pointer = {kType, mdns_ptr{"DESK._privet._tcp.local."}};
  return Built([&](auto b) { return MakeMulticastAnswer(b, {&pointer, 1}, {}, MDNS_GOODBYE); });
}

std::string Names(const ServiceList& list) {
  std::string names;
  for (const DNSServiceInfo& info : list) names += info.ty + "@" + info.ipv4 + " ";
  return names;
}

class Browser : public testing::Test {
 protected:
  Browser() {
    network.list = {FakeNetwork::Interface(72, "10.0.0.5"), FakeNetwork::Interface(72, "fe80::5")};
    browser.setNotification([this](const ServiceList& list) {
      told.push_back(std::to_string(int(network.seconds())) + ": " + Names(list));
    });
  }
  /// Runs the loop; each step is a wait of a second.
  void run(std::map<int, std::function<void()>> at, int seconds) {
    std::vector<std::function<void()>> steps(seconds);
    for (auto& [second, step] : at) steps[second] = step;
    network.script(std::move(steps));
    browser.start();
    while (!browser.hasGivenUp()) std::this_thread::yield();
    browser.stop();
  }
  void reply(const std::string& packet, const char* from = "10.0.0.9",
             Way way = {.toGroup = false}) {
    network.deliver(72, from, packet, way);
  }

  FakeNetwork network;
  mDNSQueryService browser{network};
  std::vector<std::string> told;
};

TEST_F(Browser, KeepsTheListOfTheLastCycle) {
  run({{0, [&] { reply(Reply("10.0.0.9", "Desk")); }},
       {1, [&] { reply(Reply("10.0.0.8", "Hall")), reply(Reply("10.0.0.9", "Desk")); }},
       // The same ones in another order, by the other family.
       {22, [&] { reply(Reply("10.0.0.8", "Hall"), "fe80::9"); }},
       {23, [&] { reply(Reply("10.0.0.9", "Desk"), "fe80::9"); }},
       {44, [&] { reply(Reply("10.0.0.8", "Hall")); }}},
      85);
  // A cycle is the reading, which ends after ten silent seconds, and a pause of ten.
  EXPECT_EQ(told, (std::vector<std::string>{"10: Desk@10.0.0.9 Hall@10.0.0.8 ",
                                            "50: Hall@10.0.0.8 ", "70: "}));
  bool changed = false;
  EXPECT_TRUE(browser.getServiceInfos(changed).empty());
  EXPECT_TRUE(changed);
  browser.getServiceInfos(changed);
  EXPECT_FALSE(changed);

  ASSERT_GE(network.sent.size(), 2U);
  EXPECT_EQ(network.sent[0].to + network.sent[1].to, "224.0.0.251:5353[ff02::fb%72]:5353");
  EXPECT_EQ(network.sent[1].packet, mdns_packets::Asked(kType, 12, 0x8001).replace(1, 1, 1, '\0'));
  EXPECT_EQ(network.ports[0], 0);
  EXPECT_EQ(network.openSockets(), 0U);
}

TEST_F(Browser, KeepsItsListWhenAStopCutsACycleShort) {
  run({{0, [&] { reply(Reply("10.0.0.9", "Desk")); }}}, 22);
  EXPECT_EQ(told, std::vector<std::string>{"10: Desk@10.0.0.9 "});
  bool changed;
  EXPECT_EQ(Names(browser.getServiceInfos(changed)), "Desk@10.0.0.9 ");
}

TEST_F(Browser, ListensOnlyWhereItCouldAsk) {
  network.failures = 1;
  run({{0, [&] { reply(Reply("10.0.0.9", "Desk")); }},
       {1, [&] { reply(Reply("10.0.0.8", "Hall"), "fe80::9"); }}},
      15);
  EXPECT_EQ(told, std::vector<std::string>{"11: Hall@10.0.0.8 "});
}

TEST_F(Browser, TakesNeighboursOnly) {
  run({{0,
        [&] {
          reply(Reply("10.0.0.9", "Far"), "192.0.2.1");
          reply(Reply("10.0.0.9", "Printer", "printer"));
          reply(Reply("10.0.0.9", "Cut").substr(0, 90));             // without its text
          reply(Reply("10.0.0.9", "Asker").replace(2, 1, 1, '\0'));  // a question
          reply(Reply("10.0.0.9", "Thief").replace(7, 1, 1, '\0'));  // without an answer
          reply(Reply("10.0.0.9", "Forger"), "10.0.0.9", {.port = 5354});
          reply(Reply("10.0.0.9", "Desk"));
        }}},
      15);
  EXPECT_EQ(told, std::vector<std::string>{"10: Desk@10.0.0.9 "});
}

TEST_F(Browser, ListsAFewServicesOfAMachineThatFloodsAndThoseOfOthers) {
  std::map<int, std::function<void()>> steps;
  steps[0] = [&] {
    // Three records a packet.
    for (int i = 0; i < 3000; ++i) reply(Reply("10.0.0.9", std::to_string(i).c_str()));
  };
  for (int source = 20; source < 60; ++source) {
    steps[source] = [&, from = "10.0.0." + std::to_string(source)] {
      reply(Reply(from.c_str(), from.c_str()), from.c_str());
    };
  }
  run(steps, 200);
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(std::count(told[0].begin(), told[0].end(), '@'), 256 / 3 + 40);
}

TEST_F(Browser, KeepsRoomForThoseThatAnsweredBefore) {
  std::size_t cycles = 0;
  const auto answer = [&] {
    if (told.size() != cycles || network.openSockets() == 0) return;
    // From the second cycle on, 19 senders with 300 records each come first.
    for (int i = 0; cycles > 0 && i < 100 * 19; ++i) {
      const std::string from = "10.0.0." + std::to_string(20 + i % 19);
      reply(Reply(from.c_str(), std::to_string(i).c_str()), from.c_str());
    }
    reply(Reply("10.0.0.9", "Desk"), "10.0.0.9");
    if (cycles == 1) reply(Reply("10.0.0.8", "Hall"), "10.0.0.8");
    ++cycles;
  };
  std::map<int, std::function<void()>> steps;
  for (int i = 0; i < 140; ++i) steps[i] = answer;
  run(steps, 140);
  ASSERT_GE(told.size(), 3U);
  for (int i = 0; i < 3; ++i) EXPECT_NE(told[i].find(" Desk@10.0.0.9"), told[i].npos) << told[i];
  EXPECT_EQ(told[1].find("Hall"), std::string::npos) << "there was room for all: the test is void";
}

TEST_F(Browser, TakesAServiceThatSaysGoodbyeOffTheList) {
  const std::string desk = Reply("10.0.0.9", "Desk");
  const std::string goodbye = Reply("10.0.0.9", "Desk", "twaindirect", MDNS_GOODBYE);
  std::string mixed = desk;
  mixed.replace(mixed.find("\0\0\0\x3C"s), 4, 4, '\0');  // the pointer alone
  for (const auto& [what, packets, list] :
       Table<const char*, std::vector<std::string>, std::string>{
           {"alone", {goodbye}, ""},
           {"first", {goodbye, desk}, "Desk@10.0.0.9 "},
           {"last", {Reply("10.0.0.8", "Hall"), desk, goodbye}, "Hall@10.0.0.8 "},
           {"pointer with live records", {mixed}, ""},
           {"pointer alone, last", {desk, PointerGoodbye()}, ""}}) {
    for (const std::string& packet : packets) {
      ParseReply(mdns_packets::Bytes(packet), 0, {}, [&](const mdns_query_result& result) {
        mDNSQueryService::QueryResultCallback(&browser, result, MDNS_RECORD_FOUND);
      });
    }
    browser.endAddServiceInfo();
    bool changed;
    EXPECT_EQ(Names(browser.getServiceInfos(changed)), list) << what;
  }
}

TEST_F(Browser, SteadyTrafficKeepsNothingBack) {
  std::map<int, std::function<void()>> steps;
  for (int i = 0; i < 3000; ++i) steps[i] = [&] { reply(Reply("10.0.0.9", "Desk")); };
  run(steps, 3000 + 5);
  EXPECT_EQ(told, std::vector<std::string>{"30: Desk@10.0.0.9 "});
  EXPECT_EQ(browser.getSeenServices().size(), 1U);
}

TEST_F(Browser, GroupsRecordsIntoServices) {
  DNSServiceInfo kind;
  kind.type = SERVICE_TWAIN_DIRECT;
  kind.ty = "Desk";
  DNSServiceInfo address;
  address.ipv4 = "10.0.0.9";
  address.tags = "red";
  DNSServiceInfo access = kind;
  access.accessMode = ACCESS_PASSWORD;
  using Records = std::vector<std::pair<DNSServiceInfo, bool>>;
  for (const auto& [what, records, list] : Table<const char*, Records, std::string>{
           {"one service", {{kind, true}, {address, false}}, "Desk@10.0.0.9 "},
           {"each record its own, one without a kind", {{kind, true}, {address, true}}, "Desk@ "},
           {"the same twice", {{kind, true}, {kind, true}}, "Desk@ "},
           {"another access mode", {{kind, true}, {access, true}}, "Desk@ Desk@ "}}) {
    browser.beginAddServiceInfo();
    for (const auto& [record, begins] : records) browser.addServiceInfo(record, begins);
    browser.endAddServiceInfo();
    bool changed;
    const ServiceList published = browser.getServiceInfos(changed);
    EXPECT_EQ(Names(published), list) << what;
    for (const DNSServiceInfo& info : published) EXPECT_EQ(info.tags, "");
  }
}

}  // namespace
