// Where replies go: modules name a connection by its id, at any time and from any thread, also long
// after the client went away.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "host/http/byte_budget.h"
#include "os/mutex.h"

namespace host {

struct Reply {
  std::string text;
  std::string data;  ///< binary data beside the text, "" for none
};

/// Something that takes the replies to a client. Any thread may call.
class ReplyTarget {
 public:
  virtual ~ReplyTarget() = default;
  /// Returns whether the reply was taken.
  virtual bool Deliver(Reply reply) = 0;
};

/// The open connections by their ids: positive numbers, each used once before the count begins
/// anew. Any thread may call.
class Connections {
 public:
  int Add(std::weak_ptr<ReplyTarget> target);
  void Remove(int id);
  /// False when the connection is gone or takes no more.
  bool Deliver(int id, Reply reply);

 private:
  Mutex mutex_;
  int last_ QV_GUARDED_BY(mutex_) = 0;
  std::unordered_map<int, std::weak_ptr<ReplyTarget>> targets_ QV_GUARDED_BY(mutex_);
};

/// A connection's entry for the time of a scope.
class Registration {
 public:
  Registration(Connections& connections, std::weak_ptr<ReplyTarget> target)
      : connections_(connections), id_(connections.Add(std::move(target))) {}
  ~Registration() { connections_.Remove(id_); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  int id() const { return id_; }

 private:
  Connections& connections_;
  int id_;
};

/// Keeps the first reply: an HTTP request has room for one.
class FirstReply : public ReplyTarget {
 public:
  /// The reply counts in the budget until this object's end.
  explicit FirstReply(ByteBudget& budget) : share_(budget) {}

  bool Deliver(Reply reply) override;
  std::optional<Reply> Take();
  /// Whether there was no room for a reply.
  bool overflowed() const;

 private:
  mutable Mutex mutex_;
  BudgetShare share_ QV_GUARDED_BY(mutex_);
  std::optional<Reply> reply_ QV_GUARDED_BY(mutex_);
  bool taken_ QV_GUARDED_BY(mutex_) = false;
  bool overflowed_ QV_GUARDED_BY(mutex_) = false;
};

/// The bounded queue of a WebSocket's outgoing frames. Filled by any thread, emptied by the one
/// writer, which is woken when the queue is filled while it rests.
class Outbox : public ReplyTarget {
 public:
  struct Frame {
    std::string bytes;
    bool binary = false;
  };

  /// `wake` is called outside the lock, by the thread that delivers.
  Outbox(std::size_t limit, ByteBudget& budget, std::function<void()> wake)
      : limit_(limit), wake_(std::move(wake)), share_(budget) {}

  /// A reply that does not fit drops what waits and closes the queue: the client does not keep up,
  /// or all others together hold too much.
  bool Deliver(Reply reply) override;
  /// The next frame, which counts as waiting until the next call; none puts the writer to rest.
  std::optional<Frame> Next();
  /// Takes nothing more; frames that wait are still handed out.
  void Close();
  bool overflowed() const;

 private:
  const std::size_t limit_;
  const std::function<void()> wake_;
  mutable Mutex mutex_;
  std::deque<Frame> frames_ QV_GUARDED_BY(mutex_);
  std::size_t bytes_ QV_GUARDED_BY(mutex_) = 0;  // of the frames and of the one being written
  std::size_t writing_ QV_GUARDED_BY(mutex_) = 0;
  BudgetShare share_ QV_GUARDED_BY(mutex_);
  bool writerAwake_ QV_GUARDED_BY(mutex_) = false;
  bool closed_ QV_GUARDED_BY(mutex_) = false;
  bool overflowed_ QV_GUARDED_BY(mutex_) = false;
};

}  // namespace host
