#include "discovery/wire/packet_writer.h"

#include "discovery/mdns_packets.h"
#include "support/testing.h"

namespace {

using namespace mdns_wrapper;
using namespace mdns_packets;
using namespace std::string_literals;
using namespace std::string_view_literals;

const mdns_record_t kPtr = {"_privet._tcp.local.", mdns_ptr{"h1._privet._tcp.local."}};
const mdns_record_t kSrv = {"h1._privet._tcp.local.", mdns_srv{0, 0, 42424, "h1.local."}};
const mdns_record_t kA = {"h1.local.", Ipv4("192.0.2.7")};
const mdns_record_t kAaaa = {"h1.local.", Ipv6("2001:db8::7")};
const mdns_record_t kTy = {"h1._privet._tcp.local.", mdns_txt{"ty", "S 1"}};
const mdns_record_t kType = {"h1._privet._tcp.local.", mdns_txt{"type", "\0"sv}};
const mdns_record_t kTags = {"h1._privet._tcp.local.", mdns_txt{"tags", ""}};

// Where each name stands is worked out by hand: pointers are 0xC0 and the offset.
const std::string kService = "\7_privet\4_tcp\5local\0"s +                 // 12; "local" at 25
                             Fields(12, 0x8001, 60, 5) + "\2h1\xC0\x0C" +  // 42
                             "\xC0\x2A" + Fields(33, 0x8001, 60, 11) +     // 47
                             "\0\0\0\0\xA5\xB8\2h1\xC0\x19"s +             // "h1.local" at 65
                             "\xC0\x41" + Fields(1, 0x8001, 60, 4) + "\xC0\0\2\7"s + "\xC0\x41" +
                             Fields(28, 0x8001, 60, 16) +
                             "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\7"s + "\xC0\x2A" +
                             Fields(16, 0x8001, 60, 20) + "\6ty=S 1\6type=\0\5tags="s;

TEST(MdnsWriter, BuildsAnswersToAllByteForByteAndNeverPassesItsBuffer) {
  // The pairs of a service stand together at the end, wherever they were in the list.
  const mdns_record_t kAdditional[] = {kTy, kSrv, kA, kType, kAaaa, kTags};
  const auto build = [&](std::span<std::uint8_t> buffer) {
    return MakeMulticastAnswer(buffer, {&kPtr, 1}, kAdditional, MDNS_ANNOUNCEMENT);
  };
  const std::string whole = Built(build);
  EXPECT_EQ(whole, Header(0, 1, 0, 4) + kService);
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    std::vector<std::uint8_t> buffer(whole.size() + 1, 0xEE);
    EXPECT_EQ(build(std::span(buffer).first(size)), size == whole.size() ? size : 0) << size;
    for (std::size_t i = size; i < buffer.size(); ++i) ASSERT_EQ(buffer[i], 0xEE) << size;
  }
}

TEST(MdnsWriter, BuildsUnicastAnswersByteForByte) {
  const mdns_record_t kAuthority[] = {kTy, kTags};
  const mdns_record_t kAdditional[] = {kA};
  const auto packet = Built([&](auto buffer) {
    return MakeUnicastAnswer(buffer, {0x1234, "H1.LOCAL.", 255}, {&kAaaa, 1}, kAuthority,
                             kAdditional);
  });
  EXPECT_EQ(packet, Header(1, 1, 1, 1, 0x1234) + "\2H1\5LOCAL\0"s + Number(255) + Number(0x8001) +
                        "\xC0\x0C" + Fields(28, 0x8001, 10, 16) +
                        "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\7"s +
                        "\2h1\7_privet\4_tcp\xC0\x0F" + Fields(16, 0x8001, 10, 13) +
                        "\6ty=S 1\5tags=\xC0\x0C" + Fields(1, 0x8001, 10, 4) + "\xC0\0\2\7"s);
}

std::string Query(std::string_view name, std::uint16_t type, std::uint16_t port) {
  return Built([&](auto buffer) { return MakeQuery(buffer, name, type, port); });
}

TEST(MdnsWriter, BuildsQueriesByteForByte) {
  for (const auto& [name, type, port, packet] :
       Table<std::string_view, std::uint16_t, std::uint16_t, std::string>{
           {"_privet._tcp.local.", 12, 40000, "\7_privet\4_tcp\5local\0\0\14\x80\1"s},
           {"h.local.", 255, 5353, "\1h\5local\0\0\xFF\0\1"s},
           {"a.local.a.local", 28, 5353, "\1a\5local\1a\5local\0\0\x1C\0\1"s},
           {".", 1, 5353, "\0\0\1\0\1"s}}) {
    EXPECT_EQ(Query(name, type, port), Header(1, 0, 0, 0, 0, 0) + packet) << name;
  }
}

TEST(MdnsWriter, RefusesNamesThatCannotBeWritten) {
  const std::string kLabel(63, 'l');
  EXPECT_NE(Query(kLabel + ".local.", 12, 0), "");
  for (const std::string& name : {kLabel + "l.local.", "local." + kLabel + "l", ".."s, ".local."s,
                                  "a..local."s, "a.local.."s}) {
    EXPECT_EQ(Query(name, 12, 0), "") << name;
  }
}

TEST(MdnsWriter, BuildsNoPacketAbove2048Bytes) {
  const mdns_record_t kShort = {"a", Ipv4("192.0.2.7")};
  for (const auto& [additionals, size] :
       Table<std::size_t, std::size_t>{{126, 29 + 126 * 16}, {127, 0}, {70000, 0}}) {
    const std::vector<mdns_record_t> list(additionals, kShort);
    const auto packet = Built([&](auto buffer) {
      return MakeMulticastAnswer(buffer, {&kShort, 1}, list, MDNS_GOODBYE);
    });
    EXPECT_EQ(packet.size(), size);
  }
}

TEST(MdnsWriter, CutsTextStringsAt255Bytes) {
  const std::string kLong(300, 'v');
  for (const auto& [key, value, data] : Table<std::string, std::string, std::string>{
           {"k", "a=b", "\5k=a=b"},
           {"k", kLong, "\xFFk=" + kLong.substr(0, 253)},
           {kLong.substr(0, 254), "x", "\xFF" + kLong.substr(0, 254) + "="},
           {kLong, "x", "\xFF" + kLong.substr(0, 255)}}) {
    const mdns_record_t record = {"", mdns_txt{key, value}};
    const auto packet = Built([&](auto b) {
      return MakeMulticastAnswer(b, {&record, 1}, {}, MDNS_MULTICAST_ANSWER);
    });
    EXPECT_EQ(packet, Header(0, 1, 0, 0) + Record(16, data));
  }
}

}  // namespace
