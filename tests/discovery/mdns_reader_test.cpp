#include "discovery/mdns_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "discovery/mdns_packets.h"
#include "environment/logging.h"
#include "environment/paths.h"
#include "environment/program_information.h"
#include "support/temp_folder.h"

namespace {

using namespace mdns_wrapper;
using namespace mdns_packets;
using namespace std::string_literals;
using namespace std::string_view_literals;
using Txt = std::map<std::string, std::string>;

TEST(MdnsNames, AreWalkedWithinBounds) {
  std::string chain = "\1x\0"s;
  for (std::size_t hop = 0; hop < 17; ++hop) {
    chain += Number(0xC000 | (hop == 0 ? 0 : chain.size() - 2));
  }
  std::string labels;
  for (int i = 0; i < 66; ++i) labels += "\1a";
  std::string longest;
  for (int i = 0; i < 20; ++i) longest += "\x3F" + std::string(63, 'n');
  std::string longestText;
  for (int i = 0; i < 16; ++i) longestText += std::string(63, 'n') + ".";

  const struct {
    std::string packet;
    std::size_t offset, end;  ///< end 0: malformed
    std::string text;
  } kNames[] = {
      {"\0"s, 0, 1, ""},
      {"\4host\5local\0more"s, 0, 12, "host.local."},
      {"\5local\0\4Host\xC0\0more"s, 7, 14, "Host.local."},
      {"\xC0\2\1a\0"s, 0, 2, "a."},  // forward
      {"\1a\xC0\5\0\1b\0"s, 0, 4, "a.b."},
      {"\3a.b\0"s, 0, 5, "a.b."},
      {"\3a\0b\0"s, 0, 5, "a\0b."s},
      {chain, 3 + 15 * 2, 3 + 16 * 2, "x."},  // 16 hops
      {chain, 3 + 16 * 2, 0, ""},             // 17
      {"\xC0\0"s, 0, 0, ""},                  // to itself
      {"\xC0\2\xC0\0"s, 0, 0, ""},            // in a circle
      {"\1a\xC0\0"s, 0, 0, ""},               // in a circle that grows
      {"\1a\xC0\4"s, 0, 0, ""},               // to the packet's end
      {"\1a\xFF\xFF"s, 0, 0, ""},
      {"\1a\xC0"s, 0, 0, ""},
      {"\1a"s, 0, 0, ""},
      {"\2a"s, 0, 0, ""},
      {""s, 0, 0, ""},
      {"\0"s, 1, 0, ""},
      {"\0"s, 99, 0, ""},
      {"\x40" + std::string(64, 'l') + "\0"s, 0, 0, ""},  // reserved lengths
      {"\xBF" + std::string(191, 'l') + "\0"s, 0, 0, ""},
      {labels.substr(2) + "\0"s, 0, 131, ""},  // 65 labels
      {labels + "\0"s, 0, 0, ""},
      {longest + "\0"s, 0, 1281, longestText},
  };
  for (const auto& [packet, offset, end, text] : kNames) {
    NameText read;
    const auto walked = WalkName(Bytes(packet), offset, &read);
    EXPECT_EQ(walked.value_or(0), end) << testing::PrintToString(packet);
    EXPECT_EQ(WalkName(Bytes(packet), offset, nullptr), walked);
    if (walked && !text.empty()) {
      EXPECT_EQ(read.view(), text);
    }
  }
}

TEST(MdnsNames, CompareWithoutAsciiCase) {
  const struct {
    std::string_view a, b;
    bool equal;
  } kPairs[] = {{"_privet._tcp.local.", "_PRIVET._Tcp.LOCAL.", true},
                {"", "", true},
                {"a.", "a", false},
                {"a.", "b.", false},
                {"@[`{", "`{@[", false},
                {"\xC4.", "\xE4.", false},
                {"a\0b"sv, "A\0B"sv, true},
                {"a\0b"sv, "a\0c"sv, false}};
  for (const auto& [a, b, equal] : kPairs) EXPECT_EQ(NamesEqual(a, b), equal) << a << " " << b;
}

TEST(MdnsReader, ReadsWholeThingsOrStaysWhereItIs) {
  const std::string packet = Header(1, 0, 1, 0, 0x1234, 0x100) + "\4host\5local\0\0\xFF\x80\1"s +
                             "\xC0\x0C" + Fields(99, 0x8001, 0x10002, 3) + "abc";
  for (std::size_t length = 0; length <= packet.size(); ++length) {
    PacketReader reader(Bytes(packet).first(length));
    mdns_header header;
    mdns_question question;
    mdns_received record;
    ASSERT_EQ(reader.read(header), length >= 12) << length;
    ASSERT_EQ(reader.position(), length >= 12 ? 12 : 0);
    if (length < 12) continue;
    EXPECT_EQ(header, (mdns_header{0x1234, 0x100, 1, 0, 1, 0}));
    PacketReader skipper = reader;
    ASSERT_EQ(reader.read(question), length >= 28) << length;
    ASSERT_EQ(reader.position(), length >= 28 ? 28 : 12);
    EXPECT_EQ(skipper.skipQuestion(), length >= 28);
    EXPECT_EQ(skipper.position(), reader.position());
    if (length < 28) continue;
    EXPECT_EQ(question.name.view(), "host.local.");
    EXPECT_EQ(question.type, 255);
    EXPECT_TRUE(question.wantsUnicast());
    ASSERT_EQ(reader.read(record), length == packet.size()) << length;
    ASSERT_EQ(reader.position(), length == packet.size() ? length : 28);
  }
}

// What each kind of record yields. "stops": the walk ends there as malformed.
TEST(MdnsReader, TellsWhatRecordsHold) {
  const std::string k255 = "k=" + std::string(253, 'v');
  std::string many;
  Txt most;
  for (int i = 1000; i < 1130; ++i) {
    many += "\5" + std::to_string(i) + "=";
    if (i < 1128) most[std::to_string(i)] = "";
  }
  const struct {
    std::size_t type;
    std::string data;
    bool stops;
    std::string ipv4, ipv6;
    Txt txt;
  } kRecords[] = {
      {1, "\xC0\0\2\7"s, false, "192.0.2.7", "", {}},
      {1, "\xC0\0\2"s, false, "", "", {}},
      {1, "\xC0\0\2\7\7"s, false, "", "", {}},
      {28, "\xFE\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\1"s, false, "", "fe80::1", {}},
      {28, "\xC0\0\2\7"s, false, "", "", {}},
      {12, "\1a\0"s, false, "", "", {}},
      {12, "\0"s, false, "", "", {}},  // too short for a name to be looked for
      {12, "\2a\0"s, true, "", "", {}},
      {12, "\xC0\xFF"s, true, "", "", {}},
      {33, "\0\0\0\0\0\x50\1h\0"s, false, "", "", {}},
      {33, "\0\0\0\0\0\x50"s, false, "", "", {}},
      {33, "\0\0\0\0\0\x50\5h\0"s, true, "", "", {}},
      {255, "anything", false, "", "", {}},
      {0xFFFF, "", false, "", "", {}},
      {41, "\1a", false, "", "", {}},
      {16, "", false, "", "", {}},
      {16, "\0"s, false, "", "", {}},
      {16, "\2=x\1y"s, false, "", "", {{"y", ""}}},
      {16,
       "\1x\3a=b\4c=\0d\2e="s,
       false,
       "",
       "",
       {{"x", ""}, {"a", "b"}, {"c", "\0d"s}, {"e", ""}}},
      {16, "\3k=1\3K=2\3k=3", false, "", "", {{"k", "3"}, {"K", "2"}}},
      {16,
       "\4a\nb=\4b\x7F=c\3\x1F=d\2c\t\4d=\n\n\3\xE4=e",
       false,
       "",
       "",
       {{"d", "\n\n"}, {"\xE4", "e"}}},
      {16, "\xFF" + k255, false, "", "", {{"k", std::string(253, 'v')}}},
      {16, "\3a=b\xFF" + k255.substr(1), true, "", "", {}},
      {16, many, false, "", "", most},
  };
  for (const auto& [type, data, stops, ipv4, ipv6, txt] : kRecords) {
    // A record follows: the walk goes on by the data's length.
    const std::string packet = Header(0, 1, 0, 1) + Record(type, data) + Record(1, "\1\2\3\4");
    const auto results = ResultsOf(packet);
    if (stops) {
      EXPECT_TRUE(results.empty()) << type << " " << data;
      continue;
    }
    ASSERT_EQ(results.size(), 2U) << type << " " << data;
    EXPECT_EQ(results[0].ipv4, ipv4);
    EXPECT_EQ(results[0].ipv6, ipv6);
    EXPECT_EQ(results[0].txt, txt) << data;
    EXPECT_EQ(results[1].ipv4, "1.2.3.4");
    EXPECT_EQ(results[1].entry, mdns_entry_type::additional);
  }
}

TEST(MdnsReader, DropsRepliesThatAreNotForIt) {
  const std::string question = "\1a\0\0\1\0\1"s;
  const std::string answer = Record(1, "\1\2\3\4");
  const struct {
    std::string packet;
    std::uint16_t queryId;
    std::size_t results;
  } kReplies[] = {
      {Header(0, 1, 0, 0, 7) + answer, 0, 1},
      {Header(0, 1, 0, 0, 7) + answer, 7, 1},
      {Header(0, 1, 0, 0, 7) + answer, 8, 0},
      {Header(1, 1, 0, 0) + question + answer, 0, 1},
      {Header(2, 1, 0, 0) + question + question + answer, 0, 0},
      {Header(65535, 1, 0, 0) + answer, 0, 0},
      // Counts are claims. The walk ends where the records do, and with it the sections.
      {Header(0, 65535, 65535, 65535) + answer + answer, 0, 2},
      {Header(0, 0, 65535, 0) + answer + answer, 0, 2},
      {Header(0, 0, 0, 65535) + answer, 0, 1},
      {Header(0, 65535, 0, 0), 0, 0},
  };
  for (const auto& [packet, queryId, results] : kReplies) {
    EXPECT_EQ(ResultsOf(packet, queryId).size(), results);
  }
}

TEST(MdnsReader, ReadsWhatTheWriterWroteAtEveryLength) {
  const std::string_view kInstance = "h1._privet._tcp.local.";
  const mdns_record_t kPtr = {"_privet._tcp.local.", mdns_ptr{kInstance}};
  const mdns_record_t kAuthority[] = {{"a.local.", Ipv4("192.0.2.1")},
                                      {"b.local.", Ipv4("192.0.2.2")},
                                      {"c.local.", Ipv4("192.0.2.3")}};
  const mdns_record_t kAdditional[] = {{kInstance, mdns_srv{1, 2, 3, "h1.local."}},
                                       {"H1.local.", Ipv4("192.0.2.4")},
                                       {"h1.local.", Ipv6("::5")},
                                       {kInstance, mdns_txt{"type", "\1"}},
                                       {kInstance, mdns_txt{"ty", "Scanner = 1"}},
                                       {"x.local.", mdns_ptr{"y.local."}},
                                       {"z.local.", Ipv4("192.0.2.6")}};
  const std::string packet = Built([&](auto buffer) {
    return MakeUnicastAnswer(buffer, {5, "_privet._tcp.local.", 12}, kPtr, kAuthority, kAdditional);
  });
  const auto whole = ResultsOf(packet);
  ASSERT_EQ(whole.size(), 10U);
  EXPECT_EQ(whole[0].entry, mdns_entry_type::answer);
  EXPECT_EQ(whole[3].entry, mdns_entry_type::authority);
  EXPECT_EQ(whole[3].ipv4, "192.0.2.3");
  EXPECT_EQ(whole[6].ipv6, "::5");
  EXPECT_EQ(whole[8].ipv4, "192.0.2.6");
  EXPECT_EQ(whole[9].txt, (Txt{{"type", "\1"}, {"ty", "Scanner = 1"}}));

  std::size_t before = 0;
  for (std::size_t length = 0; length < packet.size(); ++length) {
    // A buffer of its own, so that the sanitizer sees a read beyond it.
    const std::vector<char> cut(packet.begin(), packet.begin() + static_cast<long>(length));
    const auto results = ResultsOf({cut.data(), cut.size()});
    EXPECT_GE(results.size(), before) << length;
    EXPECT_LT(results.size(), whole.size()) << length;
    EXPECT_TRUE(std::equal(results.begin(), results.end(), whole.begin())) << length;
    before = results.size();
  }
  EXPECT_EQ(before, 9U);
}

TEST(MdnsReader, LogsEachRecordAndNoForgedLine) {
  InitProgramInfo();
  SetFullLogging(true);
  EXPECT_NE(LogDebug("begin"), 0);
  const std::string packet = "\1a\0"s + Fields(1, 1, 60, 4) + "\xC0\0\2\7"s +         //
                             "\3b\n\x7F\0"s + Fields(12, 0x8001, 60, 3) + "\1c\0"s +  //
                             "\0"s + Fields(33, 1, 60, 9) + "\0\1\0\2\0\3\1d\0"s +    //
                             "\0"s + Fields(16, 1, 60, 6) + "\3k=v\1x" +              //
                             "\0"s + Fields(1, 1, 0xFFFFFFFF, 1) + "z";
  std::size_t offset = 0;
  EXPECT_EQ(mdns_records_parse(Bytes(packet), offset, mdns_entry_type::authority, 5,
                               {"[::1]:5", true}, [](const auto&) {}),
            5U);
  EXPECT_EQ(offset, packet.size());
  const std::string_view kLines[] = {
      "[::1]:5 : authority a. A 192.0.2.7\n",
      "[::1]:5 : authority b??. PTR c. rclass 0x8001 ttl 60 length 3\n",
      "[::1]:5 : authority  SRV d. priority 1 weight 2 port 3\n",
      "[::1]:5 : authority  TXT k = v\n",
      "[::1]:5 : authority  TXT x\n",
      "[::1]:5 : authority  type 1 rclass 0x1 ttl 4294967295 length 1\n",
  };
  // Lines that wait for a running write are written by a later call.
  std::string text;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  do {
    LogDebug("waiting");
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    text = Slurp(GetLogFile());
  } while (text.find(kLines[5]) == std::string::npos && std::chrono::steady_clock::now() < end);
  SetFullLogging(false);
  for (const std::string_view line : kLines) {
    EXPECT_NE(text.find(": " + std::string(line)), std::string::npos) << line;
  }
}

}  // namespace
