#include "discovery/wire/names.h"

#include <algorithm>

#include "os/text.h"

namespace mdns_wrapper {

void NameText::append(std::string_view label) {
  const std::size_t taken = std::min(label.size(), bytes_.size() - length_);
  std::copy_n(label.data(), taken, bytes_.data() + length_);
  length_ += taken;
  if (length_ < bytes_.size()) bytes_[length_++] = '.';
}

LabelWalk::Step LabelWalk::next() {
  // Ends: every turn but the last follows a pointer, and those are counted.
  while (position_ < packet_.size()) {
    const std::uint8_t first = packet_[position_];
    if (first >= MDNS_POINTER) {
      if (packet_.size() - position_ < 2 || hops_ == MDNS_MOST_HOPS) return Step::kMalformed;
      if (hops_++ == 0) end_ = position_ + 2;
      position_ = static_cast<std::size_t>(first & ~MDNS_POINTER) << 8 | packet_[position_ + 1];
      continue;
    }
    ++position_;
    if (first == 0) return Step::kEnd;
    // Lengths from 64 to 191 are no lengths but reserved (RFC 1035, 4.1.4).
    if (first > MDNS_LONGEST_LABEL || first > packet_.size() - position_ ||
        labels_ == MDNS_MOST_LABELS) {
      return Step::kMalformed;
    }
    ++labels_;
    label_ = {reinterpret_cast<const char*>(packet_.data()) + position_, first};
    position_ += first;
    return Step::kLabel;
  }
  return Step::kMalformed;
}

std::optional<std::size_t> WalkName(PacketBytes packet, std::size_t offset, NameText* text) {
  if (text != nullptr) text->clear();
  LabelWalk walk(packet, offset);
  LabelWalk::Step step;
  // Ends: a walk has no more steps than names have labels.
  while ((step = walk.next()) == LabelWalk::Step::kLabel) {
    if (text != nullptr) text->append(walk.label());
  }
  if (step == LabelWalk::Step::kMalformed) return std::nullopt;
  return walk.end();
}

bool NamesEqual(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return ascii::Lower(x) == ascii::Lower(y); });
}

std::optional<std::string_view> TakeLabel(std::string_view& rest) {
  const std::size_t dot = rest.find('.');
  const std::string_view label = rest.substr(0, dot);
  if (label.empty() || label.size() > MDNS_LONGEST_LABEL) return std::nullopt;
  if (dot == std::string_view::npos) {
    rest = {};
    return label;
  }
  // A dot behind the last label would leave nothing, and hide the empty label behind it.
  if (dot + 1 == rest.size()) return std::nullopt;
  rest.remove_prefix(dot + 1);
  return label;
}

}  // namespace mdns_wrapper
