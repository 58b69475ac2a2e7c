#include "discovery/wire/packet_writer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>

#include "discovery/wire/names.h"

namespace mdns_wrapper {
namespace {

/// Whether the name at an offset is the one given, and a further hop may lead there.
bool MayEndIn(PacketBytes packet, std::size_t offset, std::string_view name) {
  LabelWalk walk(packet, offset);
  LabelWalk::Step step;
  // Ends: a walk has no more steps than names have labels.
  while ((step = walk.next()) == LabelWalk::Step::kLabel) {
    const std::optional<std::string_view> label = TakeLabel(name);
    if (!label || !NamesEqual(*label, walk.label())) return false;
  }
  return step == LabelWalk::Step::kEnd && name.empty() && walk.hops() < MDNS_MOST_HOPS;
}

std::optional<std::uint16_t> FindName(const mdns_string_table_t& table, PacketBytes packet,
                                      std::string_view name) {
  const auto end = table.offsets.begin() + table.count;
  const auto found = std::find_if(table.offsets.begin(), end, [&](std::uint16_t offset) {
    return MayEndIn(packet, offset, name);
  });
  if (found == end) return std::nullopt;
  return *found;
}

/// Appends to a packet until something does not fit; from then on it appends nothing.
class Appender {
 public:
  Appender(std::uint8_t* buffer, std::size_t capacity, std::uint8_t* data,
           mdns_string_table_t* table)
      : begin_(buffer),
        at_(data),
        end_(buffer + capacity),
        table_(table),
        names_(table != nullptr ? table->count : 0) {
    if (at_ != nullptr && (at_ < begin_ || at_ > end_)) at_ = nullptr;
  }

  /// The end of the packet, null when something did not fit.
  std::uint8_t* finish() {
    if (at_ == nullptr && table_ != nullptr) table_->count = names_;
    return at_;
  }

  void fail() { at_ = nullptr; }
  bool failed() const { return at_ == nullptr; }

  void add8(std::uint8_t number) {
    if (std::uint8_t* const place = take(1)) *place = number;
  }
  void add16(std::uint16_t number) {
    if (std::uint8_t* const place = take(2)) put16(place, number);
  }
  void add32(std::uint32_t number) {
    add16(static_cast<std::uint16_t>(number >> 16));
    add16(static_cast<std::uint16_t>(number));
  }
  void addBytes(const void* bytes, std::size_t length) {
    std::uint8_t* const place = take(length);
    if (place != nullptr && length > 0) std::memcpy(place, bytes, length);
  }
  void addBytes(std::string_view bytes) { addBytes(bytes.data(), bytes.size()); }

  void addName(std::string_view name) {
    std::string_view rest = WithoutLastDot(name);
    while (!rest.empty() && !failed()) {
      if (table_ != nullptr) {
        const PacketBytes written(begin_, at_);
        if (const auto offset = FindName(*table_, written, rest)) {
          return add16(static_cast<std::uint16_t>(MDNS_POINTER << 8 | *offset));
        }
        if (written.size() < MDNS_POINTER_REACH && table_->count < table_->offsets.size()) {
          table_->offsets[table_->count++] = static_cast<std::uint16_t>(written.size());
        }
      }
      const std::optional<std::string_view> label = TakeLabel(rest);
      if (!label) return fail();
      add8(static_cast<std::uint8_t>(label->size()));
      addBytes(*label);
    }
    add8(0);
  }

  void addOwner(std::string_view name, std::uint16_t type, std::uint16_t rclass,
                std::uint32_t ttl) {
    addName(name);
    add16(type);
    add16(rclass);
    add32(ttl);
    length_ = take(2);
  }
  /// Ends the data of the record that addOwner began.
  void endData() {
    if (failed()) return;
    const std::size_t length = static_cast<std::size_t>(at_ - length_) - 2;
    if (length > std::numeric_limits<std::uint16_t>::max()) return fail();
    put16(length_, static_cast<std::uint16_t>(length));
  }

  void addString(const mdns_txt& pair) {
    const std::string_view key = pair.key.substr(0, MDNS_LONGEST_TXT_STRING);
    const std::string_view equals =
        std::string_view("=").substr(0, MDNS_LONGEST_TXT_STRING - key.size());
    const std::string_view value =
        pair.value.substr(0, MDNS_LONGEST_TXT_STRING - key.size() - equals.size());
    add8(static_cast<std::uint8_t>(key.size() + equals.size() + value.size()));
    addBytes(key);
    addBytes(equals);
    addBytes(value);
  }

 private:
  static void put16(std::uint8_t* place, std::uint16_t number) {
    place[0] = static_cast<std::uint8_t>(number >> 8);
    place[1] = static_cast<std::uint8_t>(number);
  }

  std::uint8_t* take(std::size_t length) {
    if (at_ == nullptr) return nullptr;
    if (static_cast<std::size_t>(end_ - at_) < length) {
      fail();
      return nullptr;
    }
    std::uint8_t* const place = at_;
    at_ += length;
    return place;
  }

  std::uint8_t* const begin_;
  std::uint8_t* at_;
  std::uint8_t* const end_;
  std::uint8_t* length_ = nullptr;
  mdns_string_table_t* const table_;
  const std::size_t names_;  ///< in the table before
};

/// Writes the data of each kind of record but TXT, whose pairs belong together.
struct DataWriter {
  Appender& out;

  void operator()(const mdns_ptr& ptr) const { out.addName(ptr.target); }
  void operator()(const mdns_srv& srv) const {
    out.add16(srv.priority);
    out.add16(srv.weight);
    out.add16(srv.port);
    out.addName(srv.target);
  }
  // Addresses are in the network's byte order already.
  void operator()(const sockaddr_in& a) const { out.addBytes(&a.sin_addr, sizeof a.sin_addr); }
  void operator()(const sockaddr_in6& a) const { out.addBytes(&a.sin6_addr, sizeof a.sin6_addr); }
  void operator()(const mdns_txt& pair) const { out.addString(pair); }
};

struct TypeOf {
  std::uint16_t operator()(const mdns_ptr&) const { return MDNS_TYPE_PTR; }
  std::uint16_t operator()(const mdns_srv&) const { return MDNS_TYPE_SRV; }
  std::uint16_t operator()(const sockaddr_in&) const { return MDNS_TYPE_A; }
  std::uint16_t operator()(const sockaddr_in6&) const { return MDNS_TYPE_AAAA; }
  std::uint16_t operator()(const mdns_txt&) const { return MDNS_TYPE_TXT; }
};

bool IsTxt(const mdns_record_t& record) { return std::holds_alternative<mdns_txt>(record.data); }

/// How many records a list makes in a packet.
std::size_t CountOf(RecordList records) {
  const auto pairs = static_cast<std::size_t>(std::count_if(records.begin(), records.end(), IsTxt));
  return records.size() - pairs + (pairs > 0 ? 1 : 0);
}

/// A whole packet in the making.
class Builder {
 public:
  explicit Builder(std::span<std::uint8_t> buffer)
      : buffer_(buffer.first(std::min(buffer.size(), MDNS_PACKET_BYTES))), end_(buffer.data()) {}

  void addHeader(std::uint16_t id, std::uint16_t flags, std::uint16_t questions,
                 std::size_t answers, std::size_t authorities, std::size_t additionals) {
    // No packet holds so many; the count must not become another one on its way.
    constexpr std::size_t kMost = std::numeric_limits<std::uint16_t>::max();
    if (std::max({answers, authorities, additionals}) > kMost) end_ = nullptr;
    Appender out(buffer_.data(), buffer_.size(), end_, nullptr);
    for (const std::size_t number : {std::size_t{id}, std::size_t{flags}, std::size_t{questions},
                                     answers, authorities, additionals}) {
      out.add16(static_cast<std::uint16_t>(number));
    }
    end_ = out.finish();
  }

  void addQuestion(std::string_view name, std::uint16_t type, std::uint16_t qclass) {
    Appender out(buffer_.data(), buffer_.size(), end_, &table_);
    out.addName(name);
    out.add16(type);
    out.add16(qclass);
    end_ = out.finish();
  }

  void addRecord(const mdns_record_t& record, const mdns_lifetime& lifetime) {
    end_ = mdns_answer_add_record(buffer_.data(), buffer_.size(), end_, record, lifetime.rclass,
                                  lifetime.ttl, &table_);
  }

  void addRecords(RecordList records, const mdns_lifetime& lifetime) {
    for (const mdns_record_t& record : records) {
      if (!IsTxt(record)) addRecord(record, lifetime);
    }
    end_ = mdns_answer_add_txt_record(buffer_.data(), buffer_.size(), end_, records,
                                      lifetime.rclass, lifetime.ttl, &table_);
  }

  std::size_t size() const {
    return end_ == nullptr ? 0 : static_cast<std::size_t>(end_ - buffer_.data());
  }

 private:
  const std::span<std::uint8_t> buffer_;
  std::uint8_t* end_;
  mdns_string_table_t table_;
};

constexpr std::uint16_t kAnswerFlags = MDNS_FLAG_RESPONSE | MDNS_FLAG_AUTHORITATIVE;

}  // namespace

std::uint8_t* mdns_string_make(std::uint8_t* buffer, std::size_t capacity, std::uint8_t* data,
                               std::string_view name, mdns_string_table_t* table) {
  Appender out(buffer, capacity, data, table);
  out.addName(name);
  return out.finish();
}

std::uint8_t* mdns_answer_add_record(std::uint8_t* buffer, std::size_t capacity, std::uint8_t* data,
                                     const mdns_record_t& record, std::uint16_t rclass,
                                     std::uint32_t ttl, mdns_string_table_t* table) {
  Appender out(buffer, capacity, data, table);
  out.addOwner(record.name, std::visit(TypeOf(), record.data), rclass, ttl);
  std::visit(DataWriter{out}, record.data);
  out.endData();
  return out.finish();
}

std::uint8_t* mdns_answer_add_txt_record(std::uint8_t* buffer, std::size_t capacity,
                                         std::uint8_t* data, RecordList records,
                                         std::uint16_t rclass, std::uint32_t ttl,
                                         mdns_string_table_t* table) {
  const auto first = std::find_if(records.begin(), records.end(), IsTxt);
  if (first == records.end()) return data;
  Appender out(buffer, capacity, data, table);
  out.addOwner(first->name, MDNS_TYPE_TXT, rclass, ttl);
  for (auto record = first; record != records.end() && !out.failed(); ++record) {
    if (IsTxt(*record)) out.addString(std::get<mdns_txt>(record->data));
  }
  out.endData();
  return out.finish();
}

std::size_t MakeQuery(std::span<std::uint8_t> buffer, std::string_view name, std::uint16_t type,
                      std::uint16_t sourcePort) {
  Builder packet(buffer);
  packet.addHeader(0, 0, 1, 0, 0, 0);
  const std::uint16_t unicast = sourcePort == MDNS_PORT ? 0 : MDNS_UNICAST_RESPONSE;
  packet.addQuestion(name, type, unicast | MDNS_CLASS_IN);
  return packet.size();
}

std::size_t MakeMulticastAnswer(std::span<std::uint8_t> buffer, RecordList answer,
                                RecordList additional, const mdns_lifetime& lifetime) {
  if (buffer.size() < MDNS_LEAST_ANSWER_BYTES) return 0;
  Builder packet(buffer);
  packet.addHeader(0, kAnswerFlags, 0, CountOf(answer), 0, CountOf(additional));
  packet.addRecords(answer, lifetime);
  packet.addRecords(additional, lifetime);
  return packet.size();
}

std::size_t MakeUnicastAnswer(std::span<std::uint8_t> buffer, const AskedQuestion& question,
                              RecordList answer, RecordList authority, RecordList additional) {
  Builder packet(buffer);
  packet.addHeader(question.queryId, kAnswerFlags, 1, CountOf(answer), CountOf(authority),
                   CountOf(additional));
  packet.addQuestion(question.name, question.type, question.qclass);
  const bool wanted = (question.qclass & MDNS_UNICAST_RESPONSE) != 0;
  const mdns_lifetime& lifetime = wanted ? MDNS_UNICAST_ANSWER : MDNS_SIMPLE_ANSWER;
  for (const RecordList& section : {answer, authority, additional}) {
    packet.addRecords(section, lifetime);
  }
  return packet.size();
}

}  // namespace mdns_wrapper
