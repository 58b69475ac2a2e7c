// How much of something the other machines may use up: each for itself, all together, and those
// that are known whatever the others do.
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

/// The sources that earlier rounds heard, the longest known of them, each of which has some units
/// in a round that nobody else can take. Who is new counts from the next round on, and as long as
/// it is heard again within a few rounds. Belongs to one thread.
class KnownSources {
 public:
  KnownSources(std::size_t mostSources, std::size_t unitsOfEach)
      : mostSources_(mostSources), unitsOfEach_(unitsOfEach) {}

  void beginRound() {
    for (auto& [host, known] : known_) {
      known.left = unitsOfEach_;
      ++known.silentRounds;
    }
    std::erase_if(known_,
                  [](const auto& known) { return known.second.silentRounds > kMostSilent; });
  }
  bool isLeft(const SocketAddress& source) const {
    const auto found = known_.find(source.host());
    return found != known_.end() && found->second.left > 0;
  }
  /// Takes one of its own units, unless none is left.
  bool take(const SocketAddress& source) {
    const auto found = known_.find(source.host());
    if (found == known_.end() || found->second.left == 0) return false;
    --found->second.left;
    return true;
  }
  /// The source was heard in this round.
  void note(const SocketAddress& source) {
    const SocketAddress::Host host = source.host();
    if (known_.size() == mostSources_ && !known_.contains(host)) return;
    known_[host].silentRounds = 0;
  }

 private:
  static constexpr int kMostSilent = 3;  // a reply may be lost now and then
  struct Known {
    std::size_t left = 0;
    int silentRounds = 0;
  };

  const std::size_t mostSources_;
  const std::size_t unitsOfEach_;
  std::map<SocketAddress::Host, Known> known_;
};

}  // namespace mdns_wrapper
