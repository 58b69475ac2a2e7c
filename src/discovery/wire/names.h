// Domain names, as packets hold them and as text.
//
// In a packet a name is a run of labels, each behind its length, that ends with a zero byte or with
// a pointer to where the name goes on. As text every label is followed by ".": "host.local.".
//
// No state and no allocation: any thread may call. Every packet may come from an attacker.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "discovery/wire/protocol.h"

namespace mdns_wrapper {

using PacketBytes = std::span<const std::uint8_t>;

/// Room for one name as text. What does not fit is cut.
class NameText {
 public:
  void clear() { length_ = 0; }
  void append(std::string_view label);
  std::string_view view() const { return {bytes_.data(), length_}; }

 private:
  std::array<char, MDNS_NAME_TEXT_BYTES> bytes_;
  std::size_t length_ = 0;
};

/// Goes through the labels of a name in a packet, following its pointers.
class LabelWalk {
 public:
  enum class Step { kLabel, kEnd, kMalformed };

  LabelWalk(PacketBytes packet, std::size_t offset) : packet_(packet), position_(offset) {}
  /// After kEnd and kMalformed there is nothing more to ask.
  Step next();
  /// The label of the last step, which refers to the packet.
  std::string_view label() const { return label_; }
  int hops() const { return hops_; }
  /// After kEnd: where the packet goes on behind the name.
  std::size_t end() const { return hops_ > 0 ? end_ : position_; }

 private:
  const PacketBytes packet_;
  std::size_t position_;
  std::size_t end_ = 0;  ///< behind the first pointer
  int hops_ = 0;
  int labels_ = 0;
  std::string_view label_;
};

/// Reads the name at an offset, into `text` unless that is null. Returns the offset behind it, none
/// when it is malformed: more hops or labels than names have, or a place that the packet has not.
std::optional<std::size_t> WalkName(PacketBytes packet, std::size_t offset, NameText* text);

/// Compares names as text, or parts of them, without ASCII case.
bool NamesEqual(std::string_view a, std::string_view b);

/// Takes the first label off `rest`, a name as text whose last "." was removed: a loop calls it
/// until `rest` is empty. None when the label cannot be written: it is empty or too long.
std::optional<std::string_view> TakeLabel(std::string_view& rest);

/// A name as text without its last ".", of which only one counts.
constexpr std::string_view WithoutLastDot(std::string_view name) {
  if (name.ends_with('.')) name.remove_suffix(1);
  return name;
}

}  // namespace mdns_wrapper
