// The log of the discovery layer: Debug lines of the service's log, and the words they share.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mdns_wrapper {

/// Logs one line. The names and texts in it come from the network: control characters in them
/// become "?", so that no packet forges a line; a line of more than 2,559 bytes is cut. Any thread
/// may call.
void mdns_log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Bounds the lines that packets of other machines cause, which a neighbour could otherwise make as
/// many of as it likes: at most kMostLinesASecond. One line tells how many were left out. Belongs
/// to one thread.
class NeighbourLog {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr unsigned kMostLinesASecond = 50;

  NeighbourLog() = default;
  /// Tells what the last second left out.
  ~NeighbourLog() { tellLeftOut(); }
  NeighbourLog(const NeighbourLog&) = delete;
  NeighbourLog& operator=(const NeighbourLog&) = delete;

  /// Call it with the time in every turn of a loop. Once a second it reads from a file whether such
  /// lines are kept, and begins to count anew.
  void look(Clock::time_point now);
  /// Whether one more line is to be written now; counts it. Ask right before each.
  bool mayWrite();
  /// Whether lines are kept at all.
  bool isWanted() const { return wanted_; }

 private:
  void tellLeftOut();

  Clock::time_point looked_{};
  bool wanted_ = false;
  unsigned written_ = 0;
  unsigned leftOut_ = 0;
};

/// How much of a text a "%.*s" shows.
inline int Width(std::string_view text) { return static_cast<int>(text.size()); }

/// What makes "socket" of several "sockets".
inline const char* Plural(std::size_t count) { return count == 1 ? "" : "s"; }

/// "PTR", "SRV", "A", "AAAA", "TXT" or "ANY"; null for types of no interest here.
const char* TypeWord(std::uint16_t type);

}  // namespace mdns_wrapper
