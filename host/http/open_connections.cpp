#include "host/http/open_connections.h"

#include <utility>

namespace host {

OpenConnections::OpenConnections(const Limits& limits)
    : most_(limits.connections),
      reserved_(limits.reservedConnections),
      patience_(2 * limits.closing) {}

OpenConnections::~OpenConnections() = default;

std::unique_ptr<OpenConnections::Place> OpenConnections::Enter(const std::string& holder, End end) {
  const MutexLock lock(mutex_);
  if (HasItsShare(holder)) return nullptr;
  bool isReserved = false;
  if (entries_.size() - countEnding_ >= most_) {
    const Entry* ended = EndLongestIdle();
    isReserved = ended == nullptr || ended->isReserved;
  }
  if (entries_.size() - countEnding_ >= most_ + reserved_) return nullptr;
  if (countEnding_ > reserved_) {
    // Those that went have had their time to say goodbye.
    for (const auto& [number, entry] : entries_) {
      if (entry.isEnding) entry.end(Ending::AtOnce);
    }
    return nullptr;
  }
  Entry& entry = entries_[++lastNumber_];
  Hold(entry, holder);
  entry.end = std::move(end);
  entry.isReserved = isReserved;
  entry.idleSince = Clock::now();
  if (ending_) entry.end(*ending_);
  return std::make_unique<Place>(*this, lastNumber_, entry);
}

bool OpenConnections::HasItsShare(const std::string& holder) const {
  const auto held = holders_.find(holder);
  return held != holders_.end() && held->second >= ShareOf(most_);
}

void OpenConnections::Hold(Entry& entry, const std::string& holder) {
  if (!holder.empty()) ++holders_[holder];
  Release(entry.holder);
  entry.holder = holder;
}

void OpenConnections::Release(const std::string& holder) {
  const auto held = holders_.find(holder);
  if (held != holders_.end() && --held->second == 0) holders_.erase(held);
}

/// Returns the one that goes, null when every connection is at work.
const OpenConnections::Entry* OpenConnections::EndLongestIdle() {
  Entry* longest = nullptr;
  const auto goesBefore = [](const Entry& one, const Entry& other) {
    if (one.isIn != other.isIn) return other.isIn.load();
    return one.idleSince.load() < other.idleSince.load();
  };
  for (auto& [number, entry] : entries_) {
    if (entry.isEnding || entry.idleSince.load() == kWorking) continue;
    if (longest == nullptr || goesBefore(entry, *longest)) longest = &entry;
  }
  if (longest == nullptr) return nullptr;
  longest->isEnding = true;
  ++countEnding_;
  longest->end(Ending::Crowded);
  return longest;
}

void OpenConnections::Leave(int number) {
  const MutexLock lock(mutex_);
  const auto entry = entries_.find(number);
  if (entry->second.isEnding) --countEnding_;
  Release(entry->second.holder);
  entries_.erase(entry);
  if (entries_.empty()) changed_.notify_all();
}

std::size_t OpenConnections::Count() const {
  const MutexLock lock(mutex_);
  return entries_.size();
}

void OpenConnections::EndAll(Ending ending) {
  const auto end = Clock::now() + patience_;
  const MutexLock lock(mutex_);
  ending_ = ending;
  for (const auto& [number, entry] : entries_) entry.end(ending);
  if (ending == Ending::AtOnce) return;
  while (!entries_.empty() && changed_.wait_until(mutex_, end) != std::cv_status::timeout) {
  }
}

bool OpenConnections::Place::LetIn(const std::string& holder) {
  if (!holder.empty() && holder != holder_) {
    const MutexLock lock(table_.mutex_);
    if (table_.HasItsShare(holder)) return false;
    table_.Hold(entry_, holder);
    holder_ = holder;
  }
  entry_.isIn = true;
  return true;
}

}  // namespace host
