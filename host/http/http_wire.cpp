#include "host/http/http_wire.h"

#include <algorithm>
#include <boost/beast/http/error.hpp>
#include <string>

namespace host {

namespace {

constexpr std::size_t kFirstRead = 4 * 1024;

}  // namespace

HttpWire::HttpWire(std::unique_ptr<Stream> stream, const Limits& limits)
    : limits_(limits),
      stream_(std::move(stream)),
      deadline_(stream_->socket()),
      buffer_(limits.headerBytes + kChunk),
      patience_(limits.patience) {}

void HttpWire::Enter(OpenConnections::Place& place) {
  place_ = &place;
  if (place.IsReserved()) patience_ = std::min(patience_, limits_.closing);
}

Awaitable<bool> HttpWire::Handshake() {
  error_code ec;
  deadline_.Start(patience_);
  waiting_ = Waiting::ForBytes;
  co_await stream_->async_handshake(Into(ec));
  waiting_ = Waiting::No;
  deadline_.Stop();
  co_return !ec;
}

Awaitable<error_code> HttpWire::ReadHeader(RequestReader& request) {
  error_code ec;
  deadline_.Start(patience_);
  while (!request.header_done()) {
    if (buffer_.size() > 0) {
      buffer_.consume(request.TakeHeader(buffer_.data(), ec));
      if (!ec) continue;
      if (ec != http::error::need_more) break;
    }
    ec = co_await ReadMore(kFirstRead);
    if (ec == net::error::eof && request.begun()) ec = http::error::partial_message;
    if (ec) break;
  }
  StopClock();
  co_return ec;
}

Awaitable<error_code> HttpWire::ReadBodyPart(RequestReader& request, std::size_t limit) {
  for (;;) {
    error_code ec;
    if (buffer_.size() > 0) {
      buffer_.consume(request.TakeBody(buffer_.data(), limit, ec));
      if (ec != http::error::need_more) co_return ec;
    }
    SetClock();
    const std::size_t before = buffer_.size();
    ec = co_await ReadMore(kChunk);
    sinceStart_ += buffer_.size() - before;
    if (ec) co_return ec;
  }
}

void HttpWire::StopClock() {
  deadline_.Stop();
  sinceStart_ = kChunk;
}

/// Sets the clock anew for each chunk: the time is for so many bytes, not for the next one.
void HttpWire::SetClock() {
  if (sinceStart_ < kChunk) return;
  deadline_.Start(patience_);
  sinceStart_ = 0;
}

Awaitable<error_code> HttpWire::ReadMore(std::size_t most) {
  error_code ec;
  const std::size_t room = std::min(most, buffer_.max_size() - buffer_.size());
  if (room == 0) co_return http::error::buffer_overflow;
  place_->Rest();
  waiting_ = Waiting::ForBytes;
  buffer_.commit(co_await stream_->async_read_some(buffer_.prepare(room), Into(ec)));
  waiting_ = Waiting::No;
  place_->Work();
  co_return ec;
}

Awaitable<bool> HttpWire::Write(std::string_view bytes) {
  error_code ec;
  bytes.remove_prefix(stream_->WriteNow(net::buffer(bytes), ec));
  waiting_ = Waiting::ForRoom;
  while (!bytes.empty() && !ec) {
    SetClock();
    place_->Rest();
    const std::size_t count = co_await stream_->async_write_some(net::buffer(bytes), Into(ec));
    sinceStart_ += count;
    bytes.remove_prefix(count);
  }
  waiting_ = Waiting::No;
  place_->Work();
  StopClock();
  co_return !ec;
}

Awaitable<bool> HttpWire::Send(const Response& response, bool keepAlive) {
  std::string head = response.Head(keepAlive);
  // One packet for what is small, no copy of what is large.
  const bool small = response.body().size() <= kChunk;
  if (small) head += response.body();
  const bool sent = co_await Write(head);
  if (small || !sent) co_return sent;
  co_return co_await Write(response.body());
}

Awaitable<void> HttpWire::HangUp() {
  error_code ec;
  deadline_.Start(limits_.closing);
  place_->Rest();
  waiting_ = Waiting::ForRoom;
  co_await stream_->async_hang_up(Into(ec));
  deadline_.Stop();
}

}  // namespace host
