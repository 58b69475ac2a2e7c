#include "discovery/advertised_records.h"

#include <ifaddrs.h>
#include <net/if.h>

#include "discovery/fake_network.h"
#include "discovery/responder_loop.h"
#include "support/testing.h"

namespace {

using namespace mdns_wrapper;
using mdns_packets::Asked;
using mdns_packets::Described;
using mdns_packets::Header;

constexpr const char* kType = "_privet._tcp.local.";
constexpr const char* kInstance = "me._privet._tcp.local.";
constexpr std::uint16_t kUnicast = 0x8001;

mdns_service_info Me() {
  mdns_service_info info;
  info.hostname = "me";
  info.service = "_privet._tcp.local";
  info.port = 18626;
  info.ipv4 = "10.0.0.5";
  info.ipv6 = "fe80::77";
  info.id = "me";
  info.ty = "Desk";
  info.modules = "qtp";
  info.os = "Linux";
  info.txtvers = "1.0";
  info.type = 2;
  info.acessmode = 1;
  info.tags = "red";
  return info;
}

const std::string kPairs =
    " id=me ty=Desk txtvers=1.0 url= type=\2 os=Linux modules=qtp acessmode=\1";

class Responder : public testing::Test {
 protected:
  Responder() { network.list = {FakeNetwork::Interface(72, "10.0.0.5"), ipv6}; }
  /// Until the steps are over.
  int run(std::vector<std::function<void()>> steps = {}) {
    network.script(std::move(steps));
    network.sent.clear();
    stop.takeBack();
    return service_mdns(info, stop, network);
  }
  /// What follows the packets of a neighbour, between announcement and goodbye.
  std::vector<std::string> repliesTo(const std::string& packet, const char* from = "10.0.0.9") {
    run({[=, this] { network.deliver(72, from, packet); }});
    std::vector<std::string> replies;
    for (std::size_t i = 2; i + 2 < network.sent.size(); ++i) {
      replies.push_back(network.sent[i].to + " " + Described(network.sent[i].packet));
    }
    return replies;
  }

  const InterfaceAddress ipv6 = FakeNetwork::Interface(72, "fe80::5");
  mdns_service_info info = Me();
  FakeNetwork network;
  StopRequest stop;
};

TEST_F(Responder, AnnouncesAndTakesBackOnEverySocketWithoutTheTags) {
  EXPECT_EQ(run({nullptr}), 0);
  const auto packet = [](const std::string& ttl) {
    const std::string rest = " 8001 " + ttl;
    return std::string("id 0 flags 8400 | ") + kType + " 12" + rest + " + " + kInstance + " 33" +
           rest + " + me.local. 1" + rest + " + me.local. 28" + rest + " + " + kInstance + " 16" +
           rest + kPairs;
  };
  ASSERT_EQ(network.sent.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(network.sent[i].to, i % 2 == 0 ? "224.0.0.251:5353" : "[ff02::fb%72]:5353");
    EXPECT_EQ(Described(network.sent[i].packet), packet(i < 2 ? "60" : "0"));
  }
  EXPECT_EQ(network.ports, (std::vector<std::uint16_t>{5353, 5353}));
  EXPECT_EQ(network.openSockets(), 0U);
}

TEST_F(Responder, AnswersWhatIsAskedToAllOrToTheAsker) {
  const std::string text = std::string(kInstance) + " 16 CLASS" + kPairs + " tags=red";
  const std::string service = std::string(kInstance) + " 33 CLASS";
  const std::string a = "me.local. 1 CLASS";
  const std::string aaaa = "me.local. 28 CLASS";
  const std::string pointer =
      std::string(kType) + " 12 CLASS + " + service + " + " + a + " + " + aaaa + " + " + text;
  const std::string byName = service + " + " + a + " + " + aaaa + " + " + text;
  const std::string all = std::string(MDNS_ALL_TYPES) + " 12 CLASS";
  using Answers = std::vector<std::string>;
  for (const auto& [name, type, answers] : Table<const char*, std::uint16_t, Answers>{
           {MDNS_ALL_TYPES, 12, {all}},
           {MDNS_ALL_TYPES, 33, {}},
           {kType, 12, {pointer}},
           {kType, 16, {}},
           {kInstance, 33, {byName}},
           {kInstance, 16, {text + " + " + service + " + " + a + " + " + aaaa}},
           {kInstance, 12, {}},
           {"me.local.", 28, {aaaa}},
           {"me.local.", 255, {a, aaaa}},
           {"you.local.", 255, {}}}) {
    for (const bool unicast : {false, true}) {
      Answers expected;
      for (const std::string& answer : answers) {
        std::string told = answer;
        for (std::size_t at; (at = told.find("CLASS")) != told.npos;) {
          told.replace(at, 5, unicast ? "8001 10" : "1 60");
        }
        const std::string question =
            std::string(" | ") + name + "? " + std::to_string(type) + " 8001 | ";
        expected.push_back(unicast ? "10.0.0.9:5353 id 7 flags 8400" + question + told
                                   : "224.0.0.251:5353 id 0 flags 8400 | " + told);
      }
      EXPECT_EQ(repliesTo(Asked(name, type, unicast ? kUnicast : 1)), expected) << name << type;
    }
  }
}

TEST_F(Responder, KnowsItsNamesInAnyCaseAndAnswersAPacketOnce) {
  EXPECT_EQ(repliesTo(Asked("ME.Local.", 1, kUnicast, 40)).size(), 1U);
}

TEST_F(Responder, IgnoresWhatIsNoQuestionOfANeighbour) {
  const std::string good = Asked(kType, 12);
  const std::vector<std::string> none;
  for (const std::string& packet :
       {Asked(kType, 12, 1, 1, 0x8400),  // an answer that repeats its question
        Asked(kType, 12, 1, 1, 0x2800),  // another opcode
        Asked(kType, 12, 1, 1, 3),       // a response code
        Asked(kType, 12, 3),             // another class
        Header(0, 0, 0, 0, 0, 0)}) {
    EXPECT_EQ(repliesTo(packet), none) << testing::PrintToString(packet);
  }
  EXPECT_EQ(repliesTo(good, "192.0.2.1"), none) << "from far away";
  network.list.push_back(FakeNetwork::Interface(72, "10.8.0.2"));
  network.list.back().mask = FakeNetwork::At("255.255.255.255");
  EXPECT_EQ(repliesTo(good, "192.0.2.1"), none) << "from far away, with a tunnel";
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_EQ(repliesTo(good.substr(0, length)), none) << length;
  }
}

TEST_F(Responder, AnswersAFloodWithFewPacketsAndOtherLinksAsEver) {
  network.list = {FakeNetwork::Interface(72, "10.0.0.5"), FakeNetwork::Interface(73, "10.0.1.5")};
  run({[&] {
         for (int i = 0; i < 500; ++i) network.deliver(72, "10.0.0.9", Asked(MDNS_ALL_TYPES, 12));
       },
       nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
       [&] { network.deliver(73, "10.0.1.9", Asked(MDNS_ALL_TYPES, 12)); }, nullptr});
  EXPECT_EQ(network.sent.size(), 4U + 50U + 1U);
}

TEST_F(Responder, WorksOnEveryInterfaceThatIsUpAndNotLoopback) {
  constexpr unsigned kUp = IFF_UP | IFF_RUNNING;
  for (const auto& [text, flags, usable] :
       Table<const char*, unsigned, bool>{{"10.0.0.5", kUp, true},
                                          {"10.0.0.5", IFF_UP, false},
                                          {"127.0.0.1", kUp, false},
                                          {"::ffff:127.0.0.1", kUp, false},
                                          {"fe80::1", kUp | IFF_LOOPBACK, false},
                                          {"fe80::1", kUp, true},
                                          {nullptr, kUp, false}}) {
    const SocketAddress address = FakeNetwork::At(text != nullptr ? text : "10.0.0.5");
    char name[] = "lo";  // any interface that there is
    ifaddrs entry{};
    entry.ifa_name = name;
    entry.ifa_flags = flags;
    if (text != nullptr) entry.ifa_addr = const_cast<sockaddr*>(address.data());
    EXPECT_EQ(UsableOf(&entry).size(), usable ? 1U : 0U) << (text != nullptr ? text : "no address");
  }
}

TEST_F(Responder, OpensASocketAnInterfaceAndTellsAddressesThatComeLater) {
  network.list.clear();
  EXPECT_EQ(run(), -1) << "no socket";

  network.list = {FakeNetwork::Interface(72, "10.0.0.5"), FakeNetwork::Interface(72, "10.0.0.6")};
  EXPECT_EQ(run({[&] { network.list.push_back(ipv6); }, nullptr}), 0);
  EXPECT_EQ(network.ports.size(), 2U);
  EXPECT_EQ(Described(network.sent[0].packet).find("me.local. 28"), std::string::npos);
  EXPECT_NE(Described(network.sent[1].packet).find("me.local. 28 8001 60"), std::string::npos);
}

TEST_F(Responder, AnnouncesAgainWhereItWasNotPossibleYet) {
  network.failures = 3;
  run({nullptr, nullptr, nullptr});
  EXPECT_EQ(network.sent.size(), 4U);
}

TEST_F(Responder, TellsOnlyTheAddressesThatThereAre) {
  const SocketAddress first = FakeNetwork::At("2001:db8::5");
  for (const auto& [ipv4, ipv6Text, hasFirst, told] :
       Table<const char*, const char*, bool, std::string>{
           {"", "", true, "/"},
           {"10.9.8.7", "", true, "10.9.8.7/"},
           {"no address", "fe80::77", true, "/2001:db8::5"},
           {"", "1.2.3.4", true, "/102:304::5"},
           {"", "1.2.3.4", false, "/102:304::"},
           {"", "fe80::77", false, "/"}}) {
    info.ipv4 = ipv4;
    info.ipv6 = ipv6Text;
    const AdvertisedRecords records(info, hasFirst ? &first : nullptr);
    const auto* v4 = records.ipv4() ? std::get_if<sockaddr_in>(&records.ipv4()->data) : nullptr;
    const auto* v6 = records.ipv6() ? std::get_if<sockaddr_in6>(&records.ipv6()->data) : nullptr;
    EXPECT_EQ((v4 != nullptr ? SocketAddress(*v4).addressText() : "") + "/" +
                  (v6 != nullptr ? SocketAddress(*v6).addressText() : ""),
              told);
    EXPECT_EQ(records.text().size(), 9U);
  }
}

}  // namespace
