#include "host/http/connections.h"

#include <limits>

#include "host/http/wire_text.h"

namespace host {

int Connections::Add(std::weak_ptr<ReplyTarget> target) {
  const MutexLock lock(mutex_);
  do {
    last_ = last_ == std::numeric_limits<int>::max() ? 1 : last_ + 1;
  } while (targets_.contains(last_));
  targets_.emplace(last_, std::move(target));
  return last_;
}

void Connections::Remove(int id) {
  const MutexLock lock(mutex_);
  targets_.erase(id);
}

bool Connections::Deliver(int id, Reply reply) {
  std::shared_ptr<ReplyTarget> target;
  {
    const MutexLock lock(mutex_);
    if (const auto entry = targets_.find(id); entry != targets_.end()) {
      target = entry->second.lock();
    }
  }
  return target != nullptr && target->Deliver(std::move(reply));
}

bool FirstReply::Deliver(Reply reply) {
  const MutexLock lock(mutex_);
  if (reply_ || taken_) return false;
  if (!share_.Resize(reply.text.size() + reply.data.size())) {
    overflowed_ = true;
    return false;
  }
  reply_ = std::move(reply);
  return true;
}

bool FirstReply::overflowed() const {
  const MutexLock lock(mutex_);
  return overflowed_;
}

std::optional<Reply> FirstReply::Take() {
  const MutexLock lock(mutex_);
  taken_ = true;
  return std::exchange(reply_, std::nullopt);
}

bool Outbox::Deliver(Reply reply) {
  reply.text = ToValidUtf8(std::move(reply.text));
  bool taken = false, wake = false;
  {
    const MutexLock lock(mutex_);
    if (closed_) return false;
    const std::size_t size = reply.text.size() + reply.data.size();
    if (size > limit_ - bytes_ || !share_.Resize(bytes_ + size)) {
      frames_.clear();
      bytes_ = writing_;
      share_.Resize(bytes_);
      closed_ = overflowed_ = true;
    } else {
      bytes_ += size;
      frames_.push_back({std::move(reply.text), false});
      if (!reply.data.empty()) frames_.push_back({std::move(reply.data), true});
      taken = true;
    }
    wake = !std::exchange(writerAwake_, true);
  }
  if (wake) wake_();
  return taken;
}

std::optional<Outbox::Frame> Outbox::Next() {
  const MutexLock lock(mutex_);
  bytes_ -= std::exchange(writing_, 0);
  share_.Resize(bytes_);
  if (frames_.empty()) {
    writerAwake_ = false;
    return std::nullopt;
  }
  Frame frame = std::move(frames_.front());
  frames_.pop_front();
  writing_ = frame.bytes.size();
  return frame;
}

void Outbox::Close() {
  const MutexLock lock(mutex_);
  closed_ = true;
}

bool Outbox::overflowed() const {
  const MutexLock lock(mutex_);
  return overflowed_;
}

}  // namespace host
