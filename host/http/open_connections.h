// The open connections of a server: how many there are, who holds them, how each is ended, and
// which one has to go when all places are taken.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host/http/limits.h"
#include "os/mutex.h"

namespace host {

/// Any thread may call, each Place one thread at a time.
class OpenConnections {
 public:
  /// How a connection ends: after what it is doing, the same because another needs its place, or at
  /// once.
  enum class Ending { InOrder, Crowded, AtOnce };
  /// Makes a connection end. Any thread calls it, and it must not call back.
  using End = std::function<void(Ending)>;
  class Place;

  explicit OpenConnections(const Limits& limits);
  ~OpenConnections();

  /// A place for a connection that belongs to a holder, "" for one that may have all places. When
  /// all are taken the connection goes that has been idle longest, first among those that were not
  /// let in yet. Null when none is idle and the places kept free are taken, too, or when the holder
  /// has its share.
  std::unique_ptr<Place> Enter(const std::string& holder, End end);
  std::size_t Count() const;
  /// Ends all connections, also those that enter later. Waits a while for those that end in order.
  void EndAll(Ending ending);

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    End end;
    std::string holder;
    bool isReserved = false;
    bool isEnding = false;
    std::atomic<bool> isIn = false;                       // it was let in
    std::atomic<Clock::time_point> idleSince = kWorking;  // waits for its client
  };
  /// Later than any idle connection.
  static constexpr Clock::time_point kWorking = Clock::time_point::max();

  void Leave(int number);
  bool HasItsShare(const std::string& holder) const QV_REQUIRES(mutex_);
  /// Makes the entry the holder's.
  void Hold(Entry& entry, const std::string& holder) QV_REQUIRES(mutex_);
  void Release(const std::string& holder) QV_REQUIRES(mutex_);
  const Entry* EndLongestIdle() QV_REQUIRES(mutex_);

  const std::size_t most_;
  const std::size_t reserved_;
  const std::chrono::seconds patience_;
  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  std::optional<Ending> ending_ QV_GUARDED_BY(mutex_);
  int lastNumber_ QV_GUARDED_BY(mutex_) = 0;
  std::size_t countEnding_ QV_GUARDED_BY(mutex_) = 0;
  std::map<int, Entry> entries_ QV_GUARDED_BY(mutex_);
  std::map<std::string, std::size_t> holders_ QV_GUARDED_BY(mutex_);
};

/// A connection's place, for as long as the connection lives.
class OpenConnections::Place {
 public:
  Place(OpenConnections& table, int number, Entry& entry)
      : table_(table), number_(number), entry_(entry), holder_(entry.holder) {}
  ~Place() { table_.Leave(number_); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  /// Whether it is one of those kept free for who asks for the service's health.
  bool IsReserved() const { return entry_.isReserved; }
  /// From now on the connection waits for its client; or it does not.
  void Rest() { entry_.idleSince = Clock::now(); }
  void Work() { entry_.idleSince = kWorking; }
  /// The door has let in what the connection brought, in the name of a holder; "" for the one that
  /// it has. False when that has its share of connections.
  bool LetIn(const std::string& holder);
  const std::string& holder() const { return holder_; }
  int number() const { return number_; }

 private:
  OpenConnections& table_;
  const int number_;
  Entry& entry_;
  std::string holder_;
};

}  // namespace host
