// Any bytes as a packet: reads stay where they are when they fail, a walk ends with the packet, and
// what was read is written again in few enough bytes and reads back as it was.
#include "discovery/reply_parser.h"

#include <array>
#include <vector>

#include "discovery/wire/packet_writer.h"
#include "fuzz/fuzz_target.h"

namespace {

using namespace mdns_wrapper;

template <class Item>
bool ReadInPlace(PacketReader& reader, Item& item, std::size_t least) {
  const std::size_t before = reader.position();
  const bool read = reader.read(item);
  Require(read ? reader.position() >= before + least : reader.position() == before,
          "a read moves behind what it read, or not at all");
  return read;
}

/// What a result would be on its way out: each pair and the address, under one name.
std::vector<mdns_record_t> RecordsOf(const mdns_query_result& result, std::string_view name) {
  std::vector<mdns_record_t> records;
  if (!result.ipv4.empty()) records.push_back({name, sockaddr_in{}});
  if (!result.ipv6.empty()) records.push_back({name, sockaddr_in6{}});
  for (const auto& [key, value] : result.txt) records.push_back({name, mdns_txt{key, value}});
  return records;
}

void WriteAndReadBack(const mdns_query_result& result, std::string_view name) {
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer;
  const std::vector<mdns_record_t> records = RecordsOf(result, name);
  const mdns_record_t pointer{name, mdns_ptr{name}};
  const std::size_t size =
      MakeUnicastAnswer(buffer, {.name = name}, RecordList(&pointer, 1), {}, records);
  if (size == 0) return;
  const PacketBytes packet = PacketBytes(buffer).first(size);

  PacketReader reader(packet);
  mdns_header header;
  mdns_question question;
  mdns_received answer;
  Require(reader.read(header), "a header that was written is there");
  // A label with a dot in it becomes two, and so a name may get more of them than names have.
  if (!reader.read(question)) return;
  Require(NamesEqual(question.name.view(), name) || name.ends_with(".."), "a name reads back");
  Require(reader.read(answer) && NamesEqual(answer.name.view(), question.name.view()),
          "a compressed owner reads back");
  NameText target;
  Require(PacketReader(packet, answer.offset).readName(&target) &&
              NamesEqual(target.view(), question.name.view()),
          "a compressed target reads back");

  std::map<std::string, std::string> txt;
  const std::size_t walked = ParseReply(packet, 0, {}, [&](const mdns_query_result& read) {
    if (!read.txt.empty()) txt = read.txt;
  });
  Require(walked == std::size_t{1} + header.additionals, "every record that was written is there");
  // A string without "=" that fills its record gets one, and is cut for it.
  for (const auto& [key, value] : result.txt) {
    if (key.size() >= MDNS_LONGEST_TXT_STRING) return;
  }
  Require(txt == result.txt, "the pairs read back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const PacketBytes packet(data, size);
  PacketReader reader(packet);
  mdns_header header;
  if (!ReadInPlace(reader, header, MDNS_HEADER_BYTES)) return 0;

  // The responder's way: all questions.
  mdns_question question;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer;
  NameText name;
  for (int left = header.questions; left > 0 && ReadInPlace(reader, question, 5); --left) {
    if (name.view().empty()) name = question.name;
    const std::size_t query = MakeQuery(buffer, question.name.view(), question.type, MDNS_PORT);
    Require(query <= buffer.size(), "a query ends within its buffer");
  }
  mdns_received record;
  if (name.view().empty() && ReadInPlace(reader, record, 11)) name = record.name;

  // The browser's way: all records of a reply.
  std::size_t results = 0;
  const std::size_t walked = ParseReply(packet, 0, {}, [&](const mdns_query_result& result) {
    ++results;
    Require(result.txt.size() <= static_cast<std::size_t>(MDNS_MOST_TXT_STRINGS),
            "a record has no more pairs than are read");
    if (!result.txt.empty() || results == 1) WriteAndReadBack(result, name.view());
  });
  Require(walked == results, "each record that was walked was handed over");
  Require(walked <= size / 11, "no more records than there is room for");
  return 0;
}
