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
  bool isReserved = false;
  if (entries_.size() - countEnding_ >= most_) {
    const Entry* ended = EndLongestIdle();
    isReserved = ended == nullptr || ended->isReserved;
  }
  if (entries_.size() >= most_ + reserved_) {
    // Those that went have had their time to say goodbye.
    for (const auto& [number, entry] : entries_) {
      if (entry.isEnding) entry.end(Ending::AtOnce);
    }
    return nullptr;
  }
  Entry& entry = entries_[++lastNumber_];
  if (!Hold(entry, holder)) {
    entries_.erase(lastNumber_);
    return nullptr;
  }
  entry.end = std::move(end);
  entry.isReserved = isReserved;
  entry.idleSince = Clock::now();
  if (ending_) entry.end(*ending_);
  return std::make_unique<Place>(*this, lastNumber_, entry);
}

/// Makes the entry the holder's. False, and nothing changed, when that has its share.
bool OpenConnections::Hold(Entry& entry, const std::string& holder) {
  if (!holder.empty() && ++holders_[holder] > ShareOf(most_)) {
    Release(holder);
    return false;
  }
  Release(entry.holder);
  entry.holder = holder;
  return true;
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
    if (!table_.Hold(entry_, holder)) return false;
    holder_ = holder;
  }
  entry_.isIn = true;
  return true;
}

}  // namespace host
