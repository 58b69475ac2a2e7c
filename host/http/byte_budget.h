// How much memory all queues of a server may hold together: messages that wait to be run, replies
// that wait to be taken.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace host {

/// Any thread may call. It outlives its shares.
class ByteBudget {
 public:
  explicit ByteBudget(std::size_t bytes) : left_(bytes) {}

  bool Take(std::size_t bytes) {
    std::size_t left = left_.load();
    while (bytes <= left) {
      if (left_.compare_exchange_weak(left, left - bytes)) return true;
    }
    return false;
  }
  void Give(std::size_t bytes) { left_ += bytes; }

 private:
  std::atomic<std::size_t> left_;
};

/// What one queue holds of a budget, given back at its end. One thread at a time.
class BudgetShare {
 public:
  /// So much of each queue is not counted: the bound on connections bounds it, and a small command
  /// is taken whatever others have heaped up.
  static constexpr std::size_t kFree = 64 * 1024;

  explicit BudgetShare(ByteBudget& budget) : budget_(&budget) {}
  BudgetShare(BudgetShare&& other) noexcept
      : budget_(other.budget_), counted_(std::exchange(other.counted_, 0)) {}
  BudgetShare& operator=(BudgetShare&& other) noexcept {
    std::swap(budget_, other.budget_);
    std::swap(counted_, other.counted_);
    return *this;
  }
  ~BudgetShare() { budget_->Give(counted_); }

  /// Counts the queue as holding so many bytes. False, and nothing changed, when the budget has no
  /// room for them; a queue always may shrink.
  bool Resize(std::size_t bytes) {
    const std::size_t wanted = bytes > kFree ? bytes : 0;
    if (wanted > counted_ && !budget_->Take(wanted - counted_)) return false;
    if (wanted < counted_) budget_->Give(counted_ - wanted);
    counted_ = wanted;
    return true;
  }

 private:
  ByteBudget* budget_;
  std::size_t counted_ = 0;
};

}  // namespace host
