#include "discovery/advertised_records.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <cmath>
#include <cstring>

#include "discovery/fake_network.h"
#include "discovery/responder_loop.h"
#include "discovery/socket_set.h"
#include "support/testing.h"

namespace {

using namespace mdns_wrapper;
using mdns_packets::Asked;
using mdns_packets::Described;
using mdns_packets::Header;
using namespace std::string_literals;

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
  /// What follows the packet of a neighbour, between announcements and goodbye.
  std::vector<std::string> repliesTo(const std::string& packet, const char* from = "10.0.0.9",
                                     Way way = {}) {
    run({nullptr, nullptr, nullptr, [=, this] { network.deliver(72, from, packet, way); },
         nullptr});
    std::vector<std::string> replies;
    for (std::size_t i = 4; i + 2 < network.sent.size(); ++i) {
      replies.push_back(network.sent[i].to + " " + Described(network.sent[i].packet));
    }
    return replies;
  }
  /// Runs the loop; each step is a wait of at most a second.
  void runAt(std::map<int, std::function<void()>> at, int steps) {
    std::vector<std::function<void()>> all(steps);
    for (auto& [step, what] : at) all[step] = what;
    run(std::move(all));
  }
  /// When and to whom packets with a text in their description were sent.
  std::string sentWith(const std::string& text) const {
    std::string times;
    for (const auto& sent : network.sent) {
      if (Described(sent.packet).find(text) == std::string::npos) continue;
      times += (sent.to[0] == '[' ? "6@" : "4@") + std::to_string(std::lround(sent.at * 10)) + " ";
    }
    return times;
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
  ASSERT_EQ(network.sent.size(), 6U);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(network.sent[i].to, i % 2 == 0 ? "224.0.0.251:5353" : "[ff02::fb%72]:5353");
    EXPECT_EQ(Described(network.sent[i].packet), packet(i < 4 ? "60" : "0"));
  }
  EXPECT_EQ(network.ports, (std::vector<std::uint16_t>{5353, 5353}));
  EXPECT_EQ(network.openSockets(), 0U);
}

TEST_F(Responder, AnswersWhatIsAskedToAllOrToTheAsker) {
  const auto text = [](const char* ttl) {
    return std::string(kInstance) + " 16 " + ttl + kPairs + " tags=red";
  };
  const auto rest = [&](const std::string& ttl) {  // what comes with a pointer
    return kInstance + (" 33 " + ttl) + " + me.local. 1 " + ttl + " + me.local. 28 " + ttl + " + " +
           text(ttl.c_str());
  };
  const std::string service = std::string(kInstance) + " 33 1 60 + me.local. 1 1 60";
  using Answers = std::vector<std::string>;
  for (const auto& [name, type, answers] : Table<const char*, std::uint16_t, Answers>{
           {MDNS_ALL_TYPES, 12, {std::string(MDNS_ALL_TYPES) + " 12 1 60"}},
           {MDNS_ALL_TYPES, 33, {}},
           {kType, 12, {kType + (" 12 1 60 + " + rest("1 60"))}},
           {kType, 16, {}},
           {kInstance, 33, {rest("1 60")}},
           {kInstance, 16, {text("1 60") + " + " + service + " + me.local. 28 1 60"}},
           {kInstance, 12, {}},
           {"me.local.", 28, {"me.local. 28 1 60"}},
           {"me.local.", 255, {"me.local. 1 1 60 | me.local. 28 1 60"}},
           {"you.local.", 255, {}}}) {
    Answers expected;
    for (const std::string& answer : answers) {
      expected.push_back("224.0.0.251:5353 id 0 flags 8400 | " + answer);
    }
    EXPECT_EQ(repliesTo(Asked(name, type)), expected) << name << type;
  }
  EXPECT_EQ(repliesTo(Asked(kType, 12, kUnicast)),
            Answers{std::string("10.0.0.9:5353 id 7 flags 8400 | ") + kType + "? 12 8001 | " +
                    kType + " 12 8001 10 + " + rest("8001 10")});
  EXPECT_EQ(repliesTo(Asked("you.local.", 255, kUnicast)), Answers());
}

TEST_F(Responder, KnowsItsNamesInAnyCaseAndAnswersEachOnceAPacket) {
  EXPECT_EQ(repliesTo(Asked("ME.Local.", 1, kUnicast, 40)).size(), 1U);
  std::string many = Header(0, 0, 0, 0, 7, 0);
  for (const char* name : {MDNS_ALL_TYPES, kType, kInstance, "me.local."}) {
    for (const std::uint16_t type : {1, 12, 16, 28, 33, 255}) {
      many += Asked(name, type, kUnicast).substr(12);
      ++many[5];
    }
  }
  EXPECT_EQ(repliesTo(many).size(), 4U);
}

TEST_F(Responder, CopiesAnswersToAskersThatDoNotHearTheGroup) {
  const std::string question = "10.0.0.9:40000 id 7 flags 8400 | me.local.? 1 ";
  const std::string group = "224.0.0.251:5353 id 0 flags 8400 | me.local. 1 1 60";
  using Replies = std::vector<std::string>;
  EXPECT_EQ(repliesTo(Asked("me.local.", 1), "10.0.0.9", {.port = 40000}),
            (Replies{question + "1 | me.local. 1 1 10", group}));
  EXPECT_EQ(repliesTo(Asked("me.local.", 1, kUnicast), "10.0.0.9", {.port = 40000}),
            (Replies{question + "8001 | me.local. 1 8001 10"}));
}

/// A question with the records that its asker knows.
std::string Knowing(const std::string& question, RecordList known, std::uint32_t ttl) {
  std::string packet = mdns_packets::Built([&](auto buffer) {
    return MakeMulticastAnswer(buffer, known, {}, {MDNS_CLASS_IN, ttl});
  });
  return question.substr(0, 6) + packet.substr(6, 2) + std::string(4, '\0') + question.substr(12) +
         packet.substr(12);
}

TEST_F(Responder, LeavesOutWhatTheAskerKnows) {
  const AdvertisedRecords records(info, &ipv6.address);
  info.tags = "blue";
  const AdvertisedRecords other(info, &ipv6.address);
  info.tags = "red";
  for (const auto& [type, known, ttl, replies] :
       Table<Advertised, RecordList, std::uint32_t, std::size_t>{
           {Advertised::kPointer, records.of(Advertised::kPointer), 30, 0},
           {Advertised::kPointer, records.of(Advertised::kPointer), 29, 1},
           {Advertised::kPointer, records.of(Advertised::kTypes), 60, 1},
           {Advertised::kService, records.of(Advertised::kService), 60, 0},
           {Advertised::kText, records.of(Advertised::kText), 60, 0},
           {Advertised::kText, other.of(Advertised::kText), 60, 1},
           {Advertised::kText, records.of(Advertised::kText).first(8), 60, 1},
           {Advertised::kIpv4, records.of(Advertised::kIpv4), 60, 0},
           {Advertised::kIpv6, records.of(Advertised::kIpv6), 60, 0}}) {
    const std::uint16_t kTypes[] = {12, 12, 33, 1, 28, 16};
    const std::string_view name = records.of(type).front().name;
    const std::string question = Asked(name, kTypes[static_cast<int>(type)]);
    EXPECT_EQ(repliesTo(Knowing(question, known, ttl)).size(), replies)
        << name << static_cast<int>(type);
  }
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
  const Way kToUs = {.toGroup = false};
  EXPECT_EQ(repliesTo(good, "192.0.2.1", kToUs), none) << "from far away";
  EXPECT_EQ(repliesTo(good, "10.0.0.9", kToUs).size(), 1U);
  EXPECT_EQ(repliesTo(good, "192.0.2.1").size(), 1U) << "of another subnet on the same link";
  network.list.push_back(FakeNetwork::Interface(72, "10.8.0.2"));
  network.list.back().mask = FakeNetwork::At("255.255.255.255");
  EXPECT_EQ(repliesTo(good, "192.0.2.1", kToUs), none) << "from far away, with a tunnel";
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_EQ(repliesTo(good.substr(0, length)), none) << length;
  }
}

TEST_F(Responder, SendsTheGroupOfALinkEachRecordOnceASecond) {
  network.list = {FakeNetwork::Interface(72, "10.0.0.5"), FakeNetwork::Interface(73, "10.0.1.5")};
  std::map<int, std::function<void()>> steps;
  for (int step = 0; step < 400; ++step) {
    steps[step] = [&] {
      network.deliver(72, "10.0.0.9", Asked("me.local.", 1));
      network.deliver(72, "10.0.0.9", Asked(kType, 12));
    };
  }
  steps[350] = [&] { network.deliver(73, "10.0.1.9", Asked(kType, 12)); };
  runAt(steps, 400);
  // Each step takes 10 ms. At 3.5 s the other link is answered at once.
  for (const char* record : {" 12 1 60", " 33 1 60", "me.local. 1 1 60", " 16 1 60"}) {
    EXPECT_EQ(sentWith(record), "4@10 4@20 4@30 4@35 4@40 ");
  }
}

TEST_F(Responder, AnswersLaterWhatIsAskedTooEarly) {
  network.list = {FakeNetwork::Interface(72, "10.0.0.5")};
  // A tenth of a second after the second announcement.
  std::map<int, std::function<void()>> steps;
  for (int step = 1; step < 10; ++step) steps[step] = [&] { network.deliver(72, "10.0.0.9", "x"); };
  steps[10] = [&] { network.deliver(72, "10.0.0.9", Asked(kType, 12)); };
  runAt(steps, 14);
  EXPECT_EQ(sentWith(" 12 1 60"), "4@20 ");
  EXPECT_EQ(Described(network.sent[2].packet).find("tags=red") == std::string::npos, false);
}

TEST_F(Responder, SendsAskersSoManyAnswersASecondAndEachAFiftieth) {
  for (const auto& [sources, answers] : Table<int, std::size_t>{{1, 20}, {30, 600}, {60, 1000}}) {
    const auto flood = [&, sources = sources] {
      for (int i = 0; i < 6000; ++i) {
        const std::string from = "10.0.0." + std::to_string(20 + i % sources);
        network.deliver(72, from.c_str(), Asked("me.local.", 255, kUnicast));
      }
    };
    // 64 packets a turn, of 10 ms: within one second.
    runAt({{3, flood}}, 100);
    EXPECT_EQ(network.sent.size() - 6, answers) << sources;
  }
}

TEST_F(Responder, AnnouncesTwiceASecondApartAndAgainAfterEachChange) {
  runAt({{4, [&] { network.list.push_back(FakeNetwork::Interface(73, "10.0.1.5")); }},
         {9, [&] { network.slept += std::chrono::minutes(5); }},
         {14, [&] { network.list[0].carrierChanges += 2; }},
         {19, [&] { network.list.erase(network.list.begin() + 2); }},
         {24, [&] { network.list[0] = FakeNetwork::Interface(72, "10.0.0.6"); }}},
        30);
  const std::string start = "4@0 6@0 4@10 6@10 ";
  EXPECT_EQ(sentWith(" 12 8001 60"), start + "4@50 4@60 " + "4@100 6@100 4@100 4@110 6@110 4@110 " +
                                         "4@150 4@160 " + "6@250 4@250 6@260 4@260 ");
  for (const auto& sent : network.sent) {
    const bool old = sent.packet.find("\x0A\0\0\5"s) != std::string::npos;
    EXPECT_EQ(old, sent.at < 24.5) << sent.at;
  }
}

TEST_F(Responder, TellsWhatKeepsItFromAnnouncing) {
  ResponderReport report;
  const auto told = [&](std::vector<std::function<void()>> steps = {}) {
    network.script(std::move(steps));
    stop.takeBack();
    service_mdns(info, stop, network, &report);
    return report.state().problem;
  };
  std::string during;
  EXPECT_EQ(told({nullptr, [&] { during = report.state().announced ? "announced" : "not"; }}), "");
  EXPECT_EQ(during, "announced");
  EXPECT_FALSE(report.state().announced);
  network.held = true;
  EXPECT_EQ(told(), "No socket on port 5353 of fe80::5: " + std::string(std::strerror(EADDRINUSE)));
  network.held = false;
  network.failures = 100;
  EXPECT_EQ(told({nullptr}),
            "The announcement cannot be sent: " + std::string(std::strerror(EADDRNOTAVAIL)));
  network.failures = 0;
  info.hostname = std::string(64, 'x');
  EXPECT_EQ(told({nullptr}), "A name or a text is too long to be announced.");
  network.list.clear();
  EXPECT_EQ(told(), "This machine has no network address.");
}

TEST_F(Responder, NoticesAnotherMachineWithItsNames) {
  const mdns_record_t pointer = {kType, mdns_ptr{kInstance}};
  const mdns_record_t service = {kInstance, mdns_srv{0, 0, 1, "me.local."}};
  const mdns_record_t same = {kInstance, mdns_srv{0, 0, 18626, "ME.local."}};
  const mdns_record_t own = {"me.local.", mdns_packets::Ipv4("10.0.0.5")};
  const mdns_record_t other = {"me.local.", mdns_packets::Ipv4("10.0.0.9")};
  const mdns_record_t stranger = {"you.local.", mdns_packets::Ipv4("10.0.0.9")};
  for (const auto& [what, record, from, ttl, way, rival] :
       Table<const char*, mdns_record_t, const char*, std::uint32_t, Way, std::string>{
           {"service", service, "10.0.0.9", 60, {}, "10.0.0.9"},
           {"address", other, "10.0.0.9", 60, {}, "10.0.0.9"},
           {"its own packet", service, "10.0.0.5", 60, {}, ""},
           {"repeated by a reflector", same, "10.0.0.9", 60, {}, ""},
           {"repeated address", own, "10.0.0.9", 60, {}, ""},
           {"goodbye", service, "10.0.0.9", 0, {}, ""},
           {"another name", stranger, "10.0.0.9", 60, {}, ""},
           {"from far away", service, "192.0.2.1", 60, {.toGroup = false}, ""},
           {"from another port", service, "10.0.0.9", 60, {.port = 40000}, ""}}) {
    ResponderReport report;
    const std::string packet = mdns_packets::Built([&, &r = record, t = ttl](auto buffer) {
      return MakeMulticastAnswer(buffer, {&pointer, 1}, {&r, 1}, {MDNS_CLASS_IN, t});
    });
    network.script({[&, f = from, w = way] { network.deliver(72, f, packet, w); }, nullptr});
    stop.takeBack();
    service_mdns(info, stop, network, &report);
    const auto told = report.state().rival;
    EXPECT_EQ(told ? told->address : "", rival) << what;
  }
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

TEST_F(Responder, TakesAMaskThatTellsNoFamilyForOneOfItsAddress) {
  const SocketAddress address = FakeNetwork::At("10.0.0.5");
  for (const auto& [family, isMask] :
       Table<sa_family_t, bool>{{AF_INET, true}, {AF_UNSPEC, true}, {AF_INET6, false}}) {
    sockaddr_in mask = FakeNetwork::At("255.255.255.0").v4();
    mask.sin_family = family;
    char name[] = "lo";
    ifaddrs entry{};
    entry.ifa_name = name;
    entry.ifa_flags = IFF_UP | IFF_RUNNING;
    entry.ifa_addr = const_cast<sockaddr*>(address.data());
    entry.ifa_netmask = reinterpret_cast<sockaddr*>(&mask);
    const InterfaceList list = UsableOf(&entry);
    ASSERT_EQ(list.size(), 1U);
    ASSERT_EQ(list[0].mask.has_value(), isMask) << family;
    if (!isMask) continue;
    EXPECT_TRUE(address.sharesNetwork(FakeNetwork::At("10.0.0.6"), *list[0].mask));
  }
}

TEST_F(Responder, OpensASocketAnInterfaceAndTellsAddressesThatComeLater) {
  network.list.clear();
  EXPECT_EQ(run(), -1) << "no socket";

  network.list = {FakeNetwork::Interface(72, "10.0.0.5"), FakeNetwork::Interface(72, "10.0.0.6")};
  EXPECT_EQ(run({[&] { network.list.push_back(ipv6); }, nullptr}), 0);
  EXPECT_EQ(network.ports.size(), 2U);
  EXPECT_EQ(sentWith("me.local. 28 8001 60"), "4@10 6@10 4@20 6@20 ");

  network.list.clear();
  network.ports.clear();
  for (unsigned i = 0; i < 2 * MDNS_MOST_SOCKETS; ++i) {
    network.list.push_back(FakeNetwork::Interface(100 + i, "10.0.0.5"));
  }
  std::size_t most = 0;
  run({[&] { most = network.ports.size(); }, [&] { network.list.erase(network.list.begin()); },
       nullptr});
  EXPECT_EQ(most, MDNS_MOST_SOCKETS);
  EXPECT_EQ(network.ports.size(), MDNS_MOST_SOCKETS + 1) << "none takes the place of one that went";
}

TEST_F(Responder, AnnouncesAgainWhereItWasNotPossibleYet) {
  network.failures = 3;
  run({nullptr, nullptr, nullptr});
  EXPECT_EQ(sentWith(" 60"), "6@10 4@20 6@20 4@30 ");
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
    std::string addresses;
    for (const mdns_record_t& a : records.of(Advertised::kIpv4)) {
      addresses += SocketAddress(std::get<sockaddr_in>(a.data)).addressText();
    }
    addresses += "/";
    for (const mdns_record_t& aaaa : records.of(Advertised::kIpv6)) {
      addresses += SocketAddress(std::get<sockaddr_in6>(aaaa.data)).addressText();
    }
    EXPECT_EQ(addresses, told);
    EXPECT_EQ(records.of(Advertised::kText).size(), 9U);
  }
}

}  // namespace
