#include "platform/profile_view.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <utility>

#include "platform/ini_file.h"

namespace {

/// Beyond these bounds a file is read at every look.
constexpr std::size_t kMostBytes = 16 * 1024;
constexpr std::size_t kMostPathBytes = 1024;
constexpr std::size_t kMostKeys = 512;
/// The service has three settings files; the rest is for callers that name their own.
constexpr std::size_t kMostFiles = 8;

/// Whole seconds, so a file of this age was changed more than three seconds ago.
constexpr std::time_t kYoungSeconds = 4;
constexpr std::int64_t kMostClockStep = 500'000'000;

constexpr std::int64_t kSecond = 1'000'000'000;

/// The clock by which file systems stamp changes, and how far it is ahead of one that nobody sets.
struct Moment {
  std::time_t seconds;
  std::int64_t lead;
};

Moment Now() {
  std::timespec wall{};
  std::timespec steady{};
  ::clock_gettime(CLOCK_REALTIME, &wall);
  ::clock_gettime(CLOCK_MONOTONIC, &steady);
  return {wall.tv_sec, static_cast<std::int64_t>(wall.tv_sec - steady.tv_sec) * kSecond +
                           (wall.tv_nsec - steady.tv_nsec)};
}

/// Also false for a change that lies in the future.
bool IsOld(const FileState& state, const Moment& now) {
  return state.changed <= now.seconds - kYoungSeconds;
}

/// Shared by readers or held alone by a writer. Nobody waits: whoever cannot have it reads the
/// file instead. Needs no end, so nothing is left to do when the module is unloaded.
class TryLock {
 public:
  bool TryShare() {
    int holders = state_.load(std::memory_order_relaxed);
    while (holders >= 0) {
      if (state_.compare_exchange_weak(holders, holders + 1, std::memory_order_acquire))
        return true;
    }
    return false;
  }
  void EndShare() { state_.fetch_sub(1, std::memory_order_release); }
  bool TryHold() {
    int none = 0;
    return state_.compare_exchange_strong(none, kAlone, std::memory_order_acquire);
  }
  void ShareHold() { state_.store(1, std::memory_order_release); }

 private:
  static constexpr int kAlone = -1;
  std::atomic<int> state_{0};
};

/// Keeps the last value that the lines of a file give to one key.
class ValueFinder {
 public:
  ValueFinder(std::string_view section, std::string_view key, std::string_view absent)
      : section_(section),
        key_(key),
        first_(key.empty() ? '\0' : ascii::Lower(key.front())),
        value_(absent) {}

  bool WantsKeysFrom(char first) const { return inSection_ && ascii::Lower(first) == first_; }
  void OnSection(std::string_view name) {
    inSection_ = ini::CompareNames(ini::Name(name), section_) == 0;
  }
  void OnKey(std::string_view name, std::string_view value) {
    if (ini::CompareNames(ini::Name(name), key_) == 0) value_ = value;
  }

  std::string_view value() const { return value_; }

 private:
  std::string_view section_;
  std::string_view key_;
  char first_;
  bool inSection_ = false;
  std::string_view value_;
};

std::string_view Search(std::string_view text, std::string_view section, std::string_view key,
                        std::string_view absent) {
  ValueFinder finder(section, key, absent);
  ini::VisitLines(text, finder);
  return finder.value();
}

/// The values of a text by section and key, each found by one step or a few.
class ValueIndex {
 public:
  /// The text must stay where it is.
  void Build(std::string_view text) {
    entries_.fill({});
    text_ = text.data();
    section_ = {};
    keys_ = 0;
    inSection_ = false;
    ini::VisitLines(text, *this);
  }
  /// False when the text has too many keys.
  bool IsWhole() const { return keys_ <= kMostKeys; }

  std::string_view Find(std::string_view section, std::string_view key,
                        std::string_view absent) const {
    const Entry& entry = entries_[PlaceOf(HashOf(section, key), section, key)];
    return entry.isUsed ? View(entry.value) : absent;
  }

  // For VisitLines.
  bool WantsKeysFrom(char) const { return inSection_; }
  void OnSection(std::string_view name) {
    section_ = ini::Name(name);
    inSection_ = true;
  }
  void OnKey(std::string_view name, std::string_view value) {
    if (keys_ > kMostKeys) return;
    const std::string_view key = ini::Name(name);
    const std::uint32_t hash = HashOf(section_, key);
    Entry& entry = entries_[PlaceOf(hash, section_, key)];
    if (!entry.isUsed) {
      if (++keys_ > kMostKeys) return;
      entry = {hash, Place(section_), Place(key), {}, true};
    }
    entry.value = Place(value);
  }

 private:
  struct Range {
    std::uint16_t start, length;
  };
  struct Entry {
    std::uint32_t hash;
    Range section, key, value;
    bool isUsed;
  };
  static constexpr std::size_t kPlaces = 2 * kMostKeys;  // never full, so every search ends
  static_assert(kMostBytes <= UINT16_MAX);

  /// FNV-1a over both names as CompareNames sees them.
  static std::uint32_t HashOf(std::string_view section, std::string_view key) {
    constexpr std::uint32_t kPrime = 16777619;
    std::uint32_t hash = 2166136261;
    for (const std::string_view name : {section, key}) {
      for (const char ch : name) {
        if (ch == '\0') break;
        hash = (hash ^ static_cast<unsigned char>(ascii::Lower(ch))) * kPrime;
      }
      hash *= kPrime;
    }
    return hash;
  }

  std::size_t PlaceOf(std::uint32_t hash, std::string_view section, std::string_view key) const {
    std::size_t place = hash % kPlaces;
    while (entries_[place].isUsed && !IsNamed(entries_[place], hash, section, key)) {
      place = (place + 1) % kPlaces;
    }
    return place;
  }

  bool IsNamed(const Entry& entry, std::uint32_t hash, std::string_view section,
               std::string_view key) const {
    return entry.hash == hash && ini::CompareNames(View(entry.key), key) == 0 &&
           ini::CompareNames(View(entry.section), section) == 0;
  }

  Range Place(std::string_view part) const {
    return {static_cast<std::uint16_t>(part.data() - text_),
            static_cast<std::uint16_t>(part.size())};
  }
  std::string_view View(Range part) const { return {text_ + part.start, part.length}; }

  std::array<Entry, kPlaces> entries_{};
  const char* text_ = nullptr;
  std::string_view section_;
  std::size_t keys_ = 0;
  bool inSection_ = false;
};

}  // namespace

/// What a file held when it was read last, and whether its state can prove that it still does.
class ProfileSnapshot {
 public:
  /// Shares the snapshot with the caller if it is one of that file.
  bool Share(std::string_view path, std::size_t hash) const {
    if (pathHash_.load(std::memory_order_relaxed) != hash || !lock_.TryShare()) return false;
    if (std::string_view(path_.data(), pathLength_) == path) return true;
    lock_.EndShare();
    return false;
  }
  void EndShare() const { lock_.EndShare(); }

  // For whoever shares it.

  std::string_view text() const { return {text_.data(), textLength_}; }
  bool isSettled() const { return isSettled_; }
  /// Whether a settled snapshot is what a file in this state holds. A clock that was set back since
  /// the read may come by the same time again and stamp another change with it: then it is not
  /// taken for proof, until the file is read anew.
  bool Proves(const FileState& state, const Moment& now) const {
    return state_ == state && now.lead >= lead_ - kMostClockStep;
  }
  std::string_view Find(std::string_view section, std::string_view key,
                        std::string_view absent) const {
    return index_.IsWhole() ? index_.Find(section, key, absent)
                            : Search(text(), section, key, absent);
  }

  /// Keeps what was read instead, unless somebody looks at the snapshot just now. Returns whether
  /// it did; the caller then shares the snapshot.
  bool Replace(std::string_view path, std::size_t hash, const FileView& content, bool isSettled,
               const Moment& now) {
    if (!lock_.TryHold()) return false;
    const bool isSame = text() == content.text();
    pathHash_.store(hash, std::memory_order_relaxed);
    pathLength_ = path.copy(path_.data(), path_.size());
    state_ = *content.state();
    lead_ = now.lead;
    isSettled_ = isSettled;
    if (!isSame) {
      textLength_ = content.text().copy(text_.data(), text_.size());
      index_.Build(text());
    }
    lock_.ShareHold();
    return true;
  }

 private:
  mutable TryLock lock_;
  std::atomic<std::size_t> pathHash_{0};
  // Guarded by the lock.
  std::array<char, kMostPathBytes> path_{};
  std::size_t pathLength_ = 0;
  std::array<char, kMostBytes> text_{};
  std::size_t textLength_ = 0;
  ValueIndex index_;
  FileState state_;
  std::int64_t lead_ = 0;
  bool isSettled_ = false;
};

namespace {

constinit std::array<ProfileSnapshot, kMostFiles> g_snapshots{};
constinit std::atomic<std::size_t> g_nextVictim{0};

const ProfileSnapshot* ShareSnapshotOf(std::string_view path, std::size_t hash) {
  for (const ProfileSnapshot& snapshot : g_snapshots) {
    if (snapshot.Share(path, hash)) return &snapshot;
  }
  return nullptr;
}

}  // namespace

ProfileView::ProfileView(const char* file) {
  if (file == nullptr) return;
  const std::string_view path(file);
  const std::size_t hash = std::hash<std::string_view>()(path);
  const Moment now = Now();
  snapshot_ = ShareSnapshotOf(path, hash);
  if (snapshot_ != nullptr && snapshot_->isSettled()) {
    const std::optional<FileState> state = StateOf(file);
    if (state && snapshot_->Proves(*state, now)) return;
  }

  content_.Read(file);
  const bool isSettled = content_.state() && IsOld(*content_.state(), now) && content_.IsProven();
  ProfileSnapshot* place = nullptr;
  if (snapshot_ != nullptr) {
    const bool isSame = content_.state() && snapshot_->text() == content_.text();
    if (isSame && !isSettled && !snapshot_->isSettled()) return;
    place = &g_snapshots[static_cast<std::size_t>(snapshot_ - g_snapshots.data())];
    std::exchange(snapshot_, nullptr)->EndShare();
  }
  if (!content_.state() || content_.text().size() > kMostBytes || path.size() > kMostPathBytes) {
    return;
  }
  if (place == nullptr) {
    place = &g_snapshots[g_nextVictim.fetch_add(1, std::memory_order_relaxed) % kMostFiles];
  }
  if (place->Replace(path, hash, content_, isSettled, now)) snapshot_ = place;
}

ProfileView::~ProfileView() {
  if (snapshot_ != nullptr) snapshot_->EndShare();
}

std::string_view ProfileView::Find(std::string_view section, std::string_view key,
                                   std::string_view absent) const {
  const std::string_view sectionName = ini::Name(section);
  const std::string_view keyName = ini::Name(key);
  if (snapshot_ != nullptr) return snapshot_->Find(sectionName, keyName, absent);
  return Search(content_.text(), sectionName, keyName, absent);
}
