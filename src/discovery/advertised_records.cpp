#include "discovery/advertised_records.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace mdns_wrapper {
namespace {

constexpr std::size_t kLongestName = 255;  // RFC 1035, 2.3.4

std::string WithLastDot(std::string name) {
  if (!name.ends_with('.')) name += '.';
  return name;
}

/// The number as the one character with that code, neither digits nor the words that readers of
/// the text know: so this service has always said it.
std::string CodeOf(std::int32_t number) { return std::string(1, static_cast<char>(number)); }

std::optional<in_addr> ParseIpv4(const std::string& text) {
  in_addr address{};
  if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return address;
}

std::optional<sockaddr_in6> Ipv6Address(const std::string& text, const SocketAddress* first) {
  if (text.empty()) return std::nullopt;
  const std::optional<in_addr> told = ParseIpv4(text);
  if (first == nullptr && !told) return std::nullopt;
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  if (first != nullptr) address.sin6_addr = first->v6().sin6_addr;
  if (told) std::memcpy(address.sin6_addr.s6_addr, &*told, sizeof *told);
  return address;
}

std::uint16_t TypeOfKind(Advertised kind) {
  switch (kind) {
    case Advertised::kTypes:
    case Advertised::kPointer:
      return MDNS_TYPE_PTR;
    case Advertised::kService:
      return MDNS_TYPE_SRV;
    case Advertised::kIpv4:
      return MDNS_TYPE_A;
    case Advertised::kIpv6:
      return MDNS_TYPE_AAAA;
    case Advertised::kText:
      return MDNS_TYPE_TXT;
  }
  return 0;
}

/// Whether a received record's data, from an offset on, is nothing but a name.
bool IsName(std::string_view name, PacketBytes packet, const mdns_received& record,
            std::size_t offset) {
  PacketReader reader(packet, offset);
  NameText text;
  return offset < record.end() && reader.readName(&text) && reader.position() == record.end() &&
         NamesEqual(text.view(), name);
}

/// Whether a received record's data is one of ours, byte for byte.
struct DataComparer {
  PacketBytes packet;
  const mdns_received& record;

  bool operator()(const mdns_ptr& ptr) const {
    return IsName(ptr.target, packet, record, record.offset);
  }
  bool operator()(const mdns_srv& srv) const {
    PacketReader reader(packet.first(record.end()), record.offset);
    std::uint16_t priority = 0;
    std::uint16_t weight = 0;
    std::uint16_t port = 0;
    return reader.read(priority) && reader.read(weight) && reader.read(port) &&
           priority == srv.priority && weight == srv.weight && port == srv.port &&
           IsName(srv.target, packet, record, reader.position());
  }
  bool operator()(const sockaddr_in& a) const { return isBytes(&a.sin_addr, sizeof a.sin_addr); }
  bool operator()(const sockaddr_in6& a) const { return isBytes(&a.sin6_addr, sizeof a.sin6_addr); }
  bool operator()(const mdns_txt&) const { return false; }  // one pair of several: see IsText

 private:
  bool isBytes(const void* bytes, std::size_t length) const {
    return record.length == length &&
           std::memcmp(packet.data() + record.offset, bytes, length) == 0;
  }
};

/// The same of all pairs of a text record.
bool IsText(RecordList pairs, PacketBytes packet, const mdns_received& record) {
  PacketReader reader(packet.first(record.end()), record.offset);
  for (const mdns_record_t& pair : pairs) {
    const auto& txt = std::get<mdns_txt>(pair.data);
    const std::string whole = std::string(txt.key) + "=" + std::string(txt.value);
    const std::string_view ours = std::string_view(whole).substr(0, MDNS_LONGEST_TXT_STRING);
    std::uint8_t length = 0;
    PacketBytes bytes;
    if (!reader.read(length) || !reader.readBytes(length, bytes) ||
        !std::equal(ours.begin(), ours.end(), bytes.begin(), bytes.end(),
                    [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; })) {
      return false;
    }
  }
  return reader.position() == record.end();
}

}  // namespace

AdvertisedRecords::AdvertisedRecords(const mdns_service_info& info, const SocketAddress* firstIpv6)
    : serviceType_(WithLastDot(info.service)),
      instanceName_((info.hostname + "." + serviceType_).substr(0, kLongestName)),
      hostName_((info.hostname + ".local.").substr(0, kLongestName)),
      info_(info),
      typeCode_(CodeOf(info.type)),
      accessCode_(CodeOf(info.acessmode)) {
  records_.push_back({MDNS_ALL_TYPES, mdns_ptr{serviceType_}});
  ends_[Advertised::kTypes] = records_.size();
  records_.push_back({serviceType_, mdns_ptr{instanceName_}});
  ends_[Advertised::kPointer] = records_.size();
  records_.push_back({instanceName_, mdns_srv{0, 0, info_.port, hostName_}});
  ends_[Advertised::kService] = records_.size();
  if (const auto address = ParseIpv4(info_.ipv4)) {
    sockaddr_in record{};
    record.sin_family = AF_INET;
    record.sin_addr = *address;
    records_.push_back({hostName_, record});
  }
  ends_[Advertised::kIpv4] = records_.size();
  if (const auto address = Ipv6Address(info_.ipv6, firstIpv6)) {
    records_.push_back({hostName_, *address});
  }
  ends_[Advertised::kIpv6] = records_.size();
  const std::pair<const char*, const std::string&> kPairs[] = {
      {"id", info_.id},           {"ty", info_.ty},           {"txtvers", info_.txtvers},
      {"url", info_.url},         {"type", typeCode_},        {"os", info_.os},
      {"modules", info_.modules}, {"acessmode", accessCode_}, {"tags", info_.tags}};
  for (const auto& [key, value] : kPairs) {
    records_.push_back({instanceName_, mdns_txt{key, value}});
  }
  ends_[Advertised::kText] = records_.size();
}

RecordList AdvertisedRecords::of(Advertised kind) const {
  const bool first = kind == Advertised::kTypes;
  const std::size_t begin =
      first ? 0 : ends_[static_cast<Advertised>(static_cast<unsigned>(kind) - 1)];
  return RecordList(records_).subspan(begin, ends_[kind] - begin);
}

RecordList AdvertisedRecords::announced() const {
  const std::size_t begin = ends_[Advertised::kPointer];
  return RecordList(records_).subspan(begin, records_.size() - begin - 1);
}

AdvertisedSet AdvertisedRecords::under(std::string_view name) const {
  if (NamesEqual(name, MDNS_ALL_TYPES)) return {Advertised::kTypes};
  if (NamesEqual(name, serviceType_)) return {Advertised::kPointer};
  if (NamesEqual(name, instanceName_)) return {Advertised::kService, Advertised::kText};
  if (NamesEqual(name, hostName_)) return {Advertised::kIpv4, Advertised::kIpv6};
  return {};
}

std::optional<Advertised> AdvertisedRecords::find(const mdns_received& record) const {
  const AdvertisedSet named = under(record.name.view());
  if (named.empty()) return std::nullopt;
  for (const Advertised kind : ADVERTISED_KINDS) {
    if (named.has(kind) && TypeOfKind(kind) == record.type) return kind;
  }
  return std::nullopt;
}

bool AdvertisedRecords::hasSameData(Advertised kind, PacketBytes packet,
                                    const mdns_received& record) const {
  const RecordList ours = of(kind);
  if (ours.empty()) return false;
  if (kind == Advertised::kText) return IsText(ours, packet, record);
  return std::visit(DataComparer{packet, record}, ours.front().data);
}

}  // namespace mdns_wrapper
