#include "discovery/reply_parser.h"

#include "discovery/mdns_packets.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/testing.h"

namespace {

using namespace mdns_wrapper;
using namespace mdns_packets;
using namespace std::string_literals;
using Txt = std::map<std::string, std::string>;

TEST(MdnsNames, AreWalkedWithinBounds) {
  std::string chain = "\1x\0"s;
  for (std::size_t hop = 0; hop < 17; ++hop) {
    chain += Number(0xC000 | (hop == 0 ? 0 : chain.size() - 2));
  }
  const std::string label(63, 'n');
  const Table<std::string, std::size_t, std::size_t, std::string> kNames = {
      {"\0"s, 0, 1, ""},
      {"\5local\0\4Host\xC0\0more"s, 7, 14, "Host.local."},
      {"\xC0\2\1a\0"s, 0, 2, "a."},  // forward
      {"\1a\xC0\5\0\1b\0"s, 0, 4, "a.b."},
      {"\3a\0b\0"s, 0, 5, "a\0b."s},
      {chain, 3 + 15 * 2, 3 + 16 * 2, "x."},                // 16 hops
      {Times(65, "\1a") + "\0"s, 0, 131, Times(65, "a.")},  // 65 labels
      {Times(20, "\x3F" + label) + "\0"s, 0, 1281, Times(16, label + ".")},
  };
  for (const auto& [packet, offset, end, text] : kNames) {
    NameText read;
    EXPECT_EQ(WalkName(Bytes(packet), offset, &read), end) << testing::PrintToString(packet);
    EXPECT_EQ(read.view(), text);
  }
  EXPECT_FALSE(WalkName(Bytes(chain), 3 + 16 * 2, nullptr)) << "17 hops";
  EXPECT_FALSE(WalkName(Bytes(chain), 99, nullptr)) << "begins behind the packet";
  for (const std::string& packet :
       {// Pointers to themselves, in circles, to the packet's end and beyond.
        "\xC0\0"s, "\xC0\2\xC0\0"s, "\1a\xC0\0"s, "\1a\xC0\4"s, "\1a\xFF\xFF"s,
        // Cut short; reserved lengths; too many labels.
        ""s, "\1a"s, "\2a"s, "\1a\xC0"s, "\x40" + std::string(64, 'l') + "\0"s,
        "\xBF" + std::string(191, 'l') + "\0"s, Times(66, "\1a") + "\0"s}) {
    EXPECT_FALSE(WalkName(Bytes(packet), 0, nullptr)) << testing::PrintToString(packet);
  }
}

/// The first of two records, which the walk reaches the second of by the first's length; none when
/// the walk ends at the first as malformed.
std::optional<mdns_query_result> FirstOfTwo(std::size_t type, std::string_view data) {
  const auto results = ResultsOf(Header(0, 1, 0, 1) + Record(type, data) + Record(1, "\1\2\3\4"));
  if (results.empty()) return std::nullopt;
  EXPECT_EQ(results.size(), 2U) << type << " " << data;
  EXPECT_EQ(results.back().ipv4, "1.2.3.4");
  EXPECT_EQ(results.back().entry, mdns_entry_type::additional);
  return results.front();
}

TEST(MdnsReader, TellsWhatRecordsHold) {
  for (const auto& [type, data, address] : Table<std::size_t, std::string, std::string>{
           {1, "\xC0\0\2\7"s, "192.0.2.7"},
           {1, "\xC0\0\2"s, ""},
           {28, "\xFE\x80" + std::string(13, '\0') + "\1", "fe80::1"},
           {28, "\xC0\0\2\7"s, ""},
           {12, "\0"s, ""},  // too short for a name to be looked for
           {33, "\0\0\0\0\0\x50"s, ""},
           {0xFFFF, "anything", ""}}) {
    const auto result = FirstOfTwo(type, data);
    ASSERT_TRUE(result) << type << " " << data;
    EXPECT_EQ(type == 28 ? result->ipv6 : result->ipv4, address);
  }
  for (const auto& [type, data] : Table<std::size_t, std::string>{
           {12, "\2a\0"s}, {12, "\xC0\xFF"s}, {33, "\0\0\0\0\0\x50\5h\0"s}, {16, "\3a=b\4k=v"}}) {
    EXPECT_FALSE(FirstOfTwo(type, data)) << type << " " << data;
  }
}

TEST(MdnsReader, TellsThePairsOfTextRecords) {
  const std::string longest = "k=" + std::string(253, 'v');
  for (const auto& [data, pairs] : Table<std::string, Txt>{
           {"", {}},
           {"\2=x\1y"s, {{"y", ""}}},
           {"\1x\3a=b\4c=\0d\2e="s, {{"x", ""}, {"a", "b"}, {"c", "\0d"s}, {"e", ""}}},
           {"\3k=1\3K=2\3k=3", {{"k", "3"}, {"K", "2"}}},
           {"\4a\nb=\4b\x7F=c\3\x1F=d\2c\t\4d=\n\n\3\xE4=e", {{"d", "\n\n"}, {"\xE4", "e"}}},
           {"\xFF" + longest, {{"k", longest.substr(2)}}}}) {
    EXPECT_EQ(FirstOfTwo(16, data).value().txt, pairs) << data;
  }
}

TEST(MdnsReader, DropsRepliesThatAreNotForItAndBelievesNoCount) {
  const std::string question = "\1a\0\0\1\0\1"s;
  const std::string answer = Record(1, "\1\2\3\4");
  for (const auto& [packet, queryId, results] : Table<std::string, std::uint16_t, std::size_t>{
           {Header(0, 1, 0, 0, 7) + answer, 7, 1},
           {Header(0, 1, 0, 0, 7) + answer, 8, 0},
           {Header(1, 1, 0, 0) + question + answer, 0, 1},
           {Header(2, 1, 0, 0) + question + question + answer, 0, 0},
           {Header(65535, 1, 0, 0) + answer, 0, 0},
           {Header(0, 65535, 65535, 65535) + answer + answer, 0, 2}}) {
    EXPECT_EQ(ResultsOf(packet, queryId).size(), results);
  }
}

TEST(MdnsReader, ReadsWhatTheWriterWroteAtEveryLength) {
  const std::string_view kInstance = "h1._privet._tcp.local.";
  const mdns_record_t kPtr = {"_privet._tcp.local.", mdns_ptr{kInstance}};
  const mdns_record_t kAuthority[] = {{"b.local.", Ipv4("192.0.2.2")}};
  const mdns_record_t kAdditional[] = {{kInstance, mdns_srv{1, 2, 3, "h1.local."}},
                                       {"H1.local.", Ipv4("192.0.2.4")},
                                       {"h1.local.", Ipv6("::5")},
                                       {kInstance, mdns_txt{"type", "\1"}},
                                       {kInstance, mdns_txt{"ty", "Scanner = 1"}}};
  const std::string packet = Built([&](auto buffer) {
    return MakeUnicastAnswer(buffer, {5, "_privet._tcp.local.", 12}, {&kPtr, 1}, kAuthority,
                             kAdditional);
  });
  const auto whole = ResultsOf(packet);
  ASSERT_EQ(whole.size(), 6U);
  EXPECT_EQ(whole[0].entry, mdns_entry_type::answer);
  EXPECT_EQ(whole[1].entry, mdns_entry_type::authority);
  EXPECT_EQ(whole[1].ipv4 + whole[3].ipv4 + whole[4].ipv6, "192.0.2.2192.0.2.4::5");
  EXPECT_EQ(whole[5].txt, (Txt{{"type", "\1"}, {"ty", "Scanner = 1"}}));

  std::size_t before = 0;
  for (std::size_t length = 0; length < packet.size(); ++length) {
    // A buffer of its own, so that the sanitizer sees a read beyond it.
    const std::vector<char> cut(packet.begin(), packet.begin() + static_cast<long>(length));
    const auto results = ResultsOf({cut.data(), cut.size()});
    EXPECT_TRUE(results.size() >= before && results.size() < whole.size()) << length;
    EXPECT_TRUE(std::equal(results.begin(), results.end(), whole.begin())) << length;
    before = results.size();
  }
  EXPECT_EQ(before, 5U);
}

/// The log once it has a line.
std::string LogWith(std::string_view line) {
  WaitUntil([&] { return Slurp(GetLogFile()).find(line) != std::string::npos; });
  return Slurp(GetLogFile());
}

TEST(MdnsReader, LogsFewLinesASecondOfWhatOthersSend) {
  InitProgramInfo();
  SetFullLogging(true);
  std::optional<NeighbourLog> log(std::in_place);
  NeighbourLog::Clock::time_point time{std::chrono::hours(1)};
  for (int second = 0; second < 3; ++second) {
    log->look(time += std::chrono::seconds(1));
    unsigned lines = 0;
    for (int i = 0; i < 1000; ++i) {
      if (i % 100 == 0) log->look(time += std::chrono::milliseconds(50));
      lines += log->mayWrite() ? 1 : 0;
    }
    EXPECT_EQ(lines, NeighbourLog::kMostLinesASecond);
    time += std::chrono::milliseconds(500);
  }
  log.emplace();  // the end of the first one tells of its last second
  mdns_log("another\n");
  const std::string text = LogWith("another\n");
  const std::string line = "Left out 950 lines about packets of other machines\n";
  int told = 0;
  for (std::size_t at = 0; (at = text.find(line, at)) != text.npos; at += line.size()) ++told;
  EXPECT_EQ(told, 3);
  SetFullLogging(false);
  log->look(time);
  EXPECT_FALSE(log->isWanted() || log->mayWrite());
}

TEST(MdnsReader, LogsNoForgedLine) {
  InitProgramInfo();
  SetFullLogging(true);
  const std::string packet = "\3b\n\x7F\0"s + Fields(12, 0x8001, 60, 3) + "\1c\0"s;
  const std::string_view line = ": [::1]:5 : authority b??. PTR c. rclass 0x8001 ttl 60 length 3\n";
  NeighbourLog log;
  log.look(NeighbourLog::Clock::now());
  std::size_t offset = 0;
  mdns_records_parse(Bytes(packet), offset, mdns_entry_type::authority, 1, {"[::1]:5", &log},
                     [](const auto&) {});
  const std::string text = LogWith(line);
  SetFullLogging(false);
  EXPECT_NE(text.find(line), text.npos) << text;
}

}  // namespace
