#include "discovery/wire/packet_reader.h"

#include <optional>

namespace mdns_wrapper {

/// Puts the reader's position back unless what was to be read was there as a whole.
class PacketReader::Attempt {
 public:
  explicit Attempt(PacketReader& reader) : reader_(reader), start_(reader.position_) {}
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;
  ~Attempt() {
    if (!committed_) reader_.position_ = start_;
  }
  bool commit() { return committed_ = true; }

 private:
  PacketReader& reader_;
  const std::size_t start_;
  bool committed_ = false;
};

bool PacketReader::readBytes(std::size_t length, PacketBytes& bytes) {
  if (position_ > packet_.size() || length > packet_.size() - position_) return false;
  bytes = packet_.subspan(position_, length);
  position_ += length;
  return true;
}

bool PacketReader::read(std::uint8_t& number) {
  PacketBytes bytes;
  if (!readBytes(1, bytes)) return false;
  number = bytes[0];
  return true;
}

bool PacketReader::read(std::uint16_t& number) {
  PacketBytes bytes;
  if (!readBytes(2, bytes)) return false;
  number = static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
  return true;
}

bool PacketReader::read(std::uint32_t& number) {
  Attempt attempt(*this);
  std::uint16_t high = 0;
  std::uint16_t low = 0;
  if (!read(high) || !read(low)) return false;
  number = static_cast<std::uint32_t>(high) << 16 | low;
  return attempt.commit();
}

bool PacketReader::read(mdns_header& header) {
  Attempt attempt(*this);
  return read(header.id) && read(header.flags) && read(header.questions) && read(header.answers) &&
         read(header.authorities) && read(header.additionals) && attempt.commit();
}

bool PacketReader::readName(NameText* text) {
  const std::optional<std::size_t> end = WalkName(packet_, position_, text);
  if (end) position_ = *end;
  return end.has_value();
}

bool PacketReader::read(mdns_question& question) {
  Attempt attempt(*this);
  return readName(&question.name) && read(question.type) && read(question.qclass) &&
         attempt.commit();
}

bool PacketReader::skipQuestion() {
  Attempt attempt(*this);
  PacketBytes typeAndClass;
  return readName(nullptr) && readBytes(4, typeAndClass) && attempt.commit();
}

bool PacketReader::read(mdns_received& record) {
  Attempt attempt(*this);
  PacketBytes data;
  if (!readName(&record.name) || !read(record.type) || !read(record.rclass) || !read(record.ttl) ||
      !read(record.length)) {
    return false;
  }
  record.offset = position_;
  return readBytes(record.length, data) && attempt.commit();
}

}  // namespace mdns_wrapper
