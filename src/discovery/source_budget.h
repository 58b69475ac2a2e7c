// How much of something the other machines may use up, each for itself and all together.
#pragma once

#include <cstddef>
#include <map>

#include "discovery/addresses.h"

namespace mdns_wrapper {

/// Units are taken one by one, until a new round begins. The share of one source leaves room for
/// others when that one floods. Holds no more sources than units. Belongs to one thread.
class SourceBudget {
 public:
  SourceBudget(std::size_t most, std::size_t mostASource)
      : most_(most), mostASource_(mostASource) {}

  void beginRound() {
    taken_ = 0;
    bySource_.clear();
  }
  /// Whether there is a unit left for a source; its port does not count.
  bool isLeft(const SocketAddress& source) const {
    if (taken_ == most_) return false;
    const auto found = bySource_.find(source.host());
    return found == bySource_.end() || found->second < mostASource_;
  }
  /// Takes one, unless none is left.
  bool take(const SocketAddress& source) {
    if (taken_ == most_) return false;
    std::size_t& own = bySource_[source.host()];
    if (own >= mostASource_) return false;
    ++own;
    ++taken_;
    return true;
  }

 private:
  const std::size_t most_;
  const std::size_t mostASource_;
  std::size_t taken_ = 0;
  std::map<SocketAddress::Host, std::size_t> bySource_;
};

}  // namespace mdns_wrapper
