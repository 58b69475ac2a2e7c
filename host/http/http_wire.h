// The bytes of an HTTP connection, read and written within the time that a client gets.
#pragma once

#include <boost/beast/core/flat_buffer.hpp>
#include <chrono>
#include <memory>
#include <string_view>

#include "host/http/http_message.h"
#include "host/http/open_connections.h"
#include "host/http/request_reader.h"
#include "host/http/waiting.h"

namespace host {

/// On the connection's thread.
class HttpWire {
 public:
  /// What goes over the wire between two looks at the clock: a client that takes or sends one byte
  /// a minute is as good as silent.
  static constexpr std::size_t kChunk = 64 * 1024;
  enum class Waiting { No, ForBytes, ForRoom };

  HttpWire(std::unique_ptr<Stream> stream, const Limits& limits);

  /// Must be called once, before all others. The place outlives the wire's use.
  void Enter(OpenConnections::Place& place);
  Socket& socket() { return stream_->socket(); }
  Executor get_executor() { return stream_->get_executor(); }
  /// Gives the stream away: the end of the wire's use.
  std::unique_ptr<Stream> TakeStream() { return std::move(stream_); }
  /// What is being waited for just now.
  Waiting waiting() const { return waiting_; }
  /// Whether bytes have come that nobody has read yet.
  bool HasBytes() const { return buffer_.size() > 0; }
  /// Whether the client was silent for too long.
  bool TimedOut() const { return deadline_.passed(); }

  Awaitable<bool> Handshake();
  Awaitable<error_code> ReadHeader(RequestReader& request);
  /// Reads the next part of a body, until `request` holds some more of it or is done. Any number
  /// of calls; StopClock after the last.
  Awaitable<error_code> ReadBodyPart(RequestReader& request, std::size_t limit);
  void StopClock();
  Awaitable<bool> Write(std::string_view bytes);
  Awaitable<bool> Send(const Response& response, bool keepAlive);
  Awaitable<void> HangUp();

 private:
  Awaitable<error_code> ReadMore(std::size_t most);
  void SetClock();

  const Limits& limits_;
  std::unique_ptr<Stream> stream_;
  Deadline deadline_;
  // Its bound also holds for what no other limit counts, such as the line before a chunk.
  boost::beast::flat_buffer buffer_;
  OpenConnections::Place* place_ = nullptr;
  std::chrono::seconds patience_;
  std::size_t sinceStart_ = kChunk;  // bytes since the clock was set
  Waiting waiting_ = Waiting::No;
};

}  // namespace host
