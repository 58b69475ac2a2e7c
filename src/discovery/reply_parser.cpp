#include "discovery/reply_parser.h"

#include <arpa/inet.h>

#include "os/text.h"

namespace mdns_wrapper {
namespace {

/// One record on its way into a result and into the log.
class RecordParser {
 public:
  RecordParser(PacketBytes packet, const mdns_received& record, const RecordLog& log,
               mdns_query_result& result)
      : packet_(packet), record_(record), log_(log), result_(result) {}

  /// False when the data is malformed.
  bool parse() {
    switch (record_.type) {
      case MDNS_TYPE_A:
        return record_.length == sizeof(in_addr) ? address(AF_INET, "A", result_.ipv4) : other();
      case MDNS_TYPE_AAAA:
        return record_.length == sizeof(in6_addr) ? address(AF_INET6, "AAAA", result_.ipv6)
                                                  : other();
      case MDNS_TYPE_PTR:
        return record_.length >= 2 ? pointer() : other();
      case MDNS_TYPE_SRV:
        // Three numbers and the shortest name there is.
        return record_.length >= 7 ? service() : other();
      case MDNS_TYPE_TXT:
        return text();
      default:
        return other();
    }
  }

 private:
  bool address(int family, const char* type, std::string& result) {
    char text[INET6_ADDRSTRLEN];
    if (inet_ntop(family, packet_.data() + record_.offset, text, sizeof text) == nullptr) {
      return false;
    }
    result = text;
    if (log_.mayWrite()) {
      mdns_log("%.*s : %s %.*s %s %s\n", Width(log_.sender), log_.sender.data(), section(),
               Width(owner()), owner().data(), type, text);
    }
    return true;
  }

  bool pointer() {
    PacketReader reader(packet_, record_.offset);
    NameText target;
    if (!readTarget(reader, target)) return false;
    speaksOf(target.view());
    if (log_.mayWrite()) {
      mdns_log("%.*s : %s %.*s PTR %.*s rclass 0x%x ttl %u length %d\n", Width(log_.sender),
               log_.sender.data(), section(), Width(owner()), owner().data(), Width(target.view()),
               target.view().data(), record_.rclass, record_.ttl, record_.length);
    }
    return true;
  }

  bool service() {
    PacketReader reader(packet_, record_.offset);
    std::uint16_t priority = 0;
    std::uint16_t weight = 0;
    std::uint16_t port = 0;
    NameText target;
    if (!reader.read(priority) || !reader.read(weight) || !reader.read(port) ||
        !readTarget(reader, target)) {
      return false;
    }
    speaksOf(owner());
    if (log_.mayWrite()) {
      mdns_log("%.*s : %s %.*s SRV %.*s priority %d weight %d port %d\n", Width(log_.sender),
               log_.sender.data(), section(), Width(owner()), owner().data(), Width(target.view()),
               target.view().data(), priority, weight, port);
    }
    return true;
  }

  bool text() {
    speaksOf(owner());
    PacketReader reader(packet_.first(record_.end()), record_.offset);
    for (int strings = 0; strings < MDNS_MOST_TXT_STRINGS && reader.position() < record_.end();
         ++strings) {
      std::uint8_t length = 0;
      PacketBytes bytes;
      if (!reader.read(length) || !reader.readBytes(length, bytes)) return false;
      pair({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    return true;
  }

  void pair(std::string_view string) {
    const std::size_t equals = string.find('=');
    const std::string_view key = string.substr(0, equals);
    if (key.empty() || ascii::HasControl(key)) return;  // RFC 6763, 6.4
    const bool hasValue = equals != std::string_view::npos;
    const std::string_view value = hasValue ? string.substr(equals + 1) : std::string_view();
    if (log_.mayWrite()) {
      mdns_log("%.*s : %s %.*s TXT %.*s%s%.*s\n", Width(log_.sender), log_.sender.data(), section(),
               Width(owner()), owner().data(), Width(key), key.data(), hasValue ? " = " : "",
               Width(value), value.data());
    }
    result_.txt.insert_or_assign(std::string(key), std::string(value));
  }

  bool other() {
    if (log_.mayWrite()) {
      mdns_log("%.*s : %s %.*s type %u rclass 0x%x ttl %u length %d\n", Width(log_.sender),
               log_.sender.data(), section(), Width(owner()), owner().data(), record_.type,
               record_.rclass, record_.ttl, record_.length);
    }
    return true;
  }

  /// A name at the reader's position that ends within the data; its pointers may leave it.
  bool readTarget(PacketReader& reader, NameText& target) const {
    return reader.readName(&target) && reader.position() <= record_.end();
  }

  void speaksOf(std::string_view instance) {
    if (result_.entry == mdns_entry_type::answer) result_.instance = instance;
  }

  const char* section() const { return EntryTypeName(result_.entry); }
  std::string_view owner() const { return record_.name.view(); }

  const PacketBytes packet_;
  const mdns_received& record_;
  const RecordLog& log_;
  mdns_query_result& result_;
};

}  // namespace

const char* EntryTypeName(mdns_entry_type entry) {
  switch (entry) {
    case mdns_entry_type::answer:
      return "answer";
    case mdns_entry_type::authority:
      return "authority";
    case mdns_entry_type::additional:
      return "additional";
  }
  return "";
}

std::size_t mdns_records_parse(PacketBytes packet, std::size_t& offset, mdns_entry_type entry,
                               std::size_t count, const RecordLog& log, const RecordFound& found) {
  PacketReader reader(packet, offset);
  mdns_received record;
  // Ends with the packet, whatever the count: a record takes up eleven bytes at least.
  for (std::size_t walked = 0; walked < count; ++walked) {
    mdns_query_result result;
    result.entry = entry;
    if (!reader.read(record)) return walked;
    result.goodbye = record.ttl == 0;
    if (!RecordParser(packet, record, log, result).parse()) return walked;
    offset = reader.position();
    found(result);
  }
  return count;
}

std::size_t ParseReply(PacketBytes packet, std::uint16_t queryId, const RecordLog& log,
                       const RecordFound& found) {
  PacketReader reader(packet);
  mdns_header header;
  if (!reader.read(header) || header.questions > 1) return 0;
  if (queryId != 0 && header.id != queryId) return 0;
  if (header.questions == 1 && !reader.skipQuestion()) return 0;

  const struct {
    mdns_entry_type entry;
    std::size_t count;
  } kSections[] = {{mdns_entry_type::answer, header.answers},
                   {mdns_entry_type::authority, header.authorities},
                   {mdns_entry_type::additional, header.additionals}};
  std::size_t offset = reader.position();
  std::size_t walked = 0;
  for (const auto& [entry, count] : kSections) {
    const std::size_t here = mdns_records_parse(packet, offset, entry, count, log, found);
    walked += here;
    if (here < count) break;
  }
  return walked;
}

}  // namespace mdns_wrapper
