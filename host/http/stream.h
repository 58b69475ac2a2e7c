// The bytes of a connection, plain or secure behind one type, so that what is built on them is
// compiled once.
//
// A connection belongs to one thread of the server: everything below is called on that thread, and
// completes there.
#pragma once

#include <array>
#include <boost/asio/async_result.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/role.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <utility>

namespace boost::asio::ssl {
class context;
}

namespace host {

namespace net = boost::asio;
using tcp = net::ip::tcp;
using boost::system::error_code;

/// Named instead of erased: cheaper to compile and to run.
using Executor = net::io_context::executor_type;
using Socket = net::basic_stream_socket<tcp, Executor>;
template <class T>
using Awaitable = net::awaitable<T, Executor>;
inline constexpr net::use_awaitable_t<Executor> kAwait;

/// `co_await operation(Into(ec))` stores the error instead of throwing it.
inline auto Into(error_code& ec) { return net::redirect_error(kAwait, ec); }

/// Any handler of an operation, called at most once.
class Completion {
 public:
  Completion() = default;
  template <class Handler>
  explicit Completion(Handler handler) : held_(new Holder<Handler>(std::move(handler))) {}

  explicit operator bool() const { return held_ != nullptr; }
  void operator()(error_code ec = {}, std::size_t bytes = 0) {
    std::exchange(held_, nullptr).release()->CallAndDelete(ec, bytes);
  }

 private:
  struct Held {
    virtual ~Held() = default;
    virtual void CallAndDelete(error_code ec, std::size_t bytes) = 0;
  };
  template <class Handler>
  struct Holder final : Held {
    explicit Holder(Handler&& itsHandler) : handler(std::move(itsHandler)) {}
    void CallAndDelete(error_code ec, std::size_t bytes) override {
      Handler local(std::move(handler));
      delete this;
      local(ec, bytes);
    }
    Handler handler;
  };
  std::unique_ptr<Held> held_;
};

/// A few buffers to be written one after another.
class Buffers {
 public:
  using value_type = net::const_buffer;
  using const_iterator = const net::const_buffer*;

  /// Takes as many as there is room for.
  template <class Sequence>
  explicit Buffers(const Sequence& sequence) {
    const auto end = net::buffer_sequence_end(sequence);
    for (auto it = net::buffer_sequence_begin(sequence); it != end && count_ < all_.size(); ++it) {
      if (const net::const_buffer buffer(*it); buffer.size() > 0) all_[count_++] = buffer;
    }
  }
  const_iterator begin() const { return all_.data(); }
  const_iterator end() const { return all_.data() + count_; }

 private:
  std::array<net::const_buffer, 4> all_;
  std::size_t count_ = 0;
};

class Stream {
 public:
  using executor_type = Executor;

  virtual ~Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  Executor get_executor() { return socket_.get_executor(); }
  /// For its addresses, options, cancelling and closing; its bytes may be encrypted.
  Socket& socket() { return socket_; }

  template <class MutableBuffers, class Token>
  auto async_read_some(const MutableBuffers& buffers, Token&& token) {
    const net::mutable_buffer first(*net::buffer_sequence_begin(buffers));
    return Initiate([this, first](Completion done) { StartRead(first, std::move(done)); }, token);
  }
  template <class ConstBuffers, class Token>
  auto async_write_some(const ConstBuffers& buffers, Token&& token) {
    return Initiate(
        [this, few = Buffers(buffers)](Completion done) { StartWrite(few, std::move(done)); },
        token);
  }
  template <class Token>
  auto async_handshake(Token&& token) {
    return Initiate([this](Completion done) { StartHandshake(std::move(done)); }, token);
  }
  /// Ends our side and drains the client's until it ends: a reset would take back what was just
  /// written.
  template <class Token>
  auto async_hang_up(Token&& token) {
    return Initiate([this](Completion done) { StartHangUp(std::move(done)); }, token);
  }

  /// Writes what can be written without waiting, and returns how much that was.
  virtual std::size_t WriteNow(net::const_buffer bytes, error_code& ec) = 0;

 protected:
  explicit Stream(Socket socket) : socket_(std::move(socket)) {}

  virtual void StartRead(net::mutable_buffer buffer, Completion done) = 0;
  virtual void StartWrite(const Buffers& buffers, Completion done) = 0;
  virtual void StartHandshake(Completion done) = 0;
  virtual void StartHangUp(Completion done) = 0;
  /// Sends the end of our bytes and reads the client's until theirs, for some seconds at most.
  void EndAndDrain(Completion done);

 private:
  template <class Start, class Token>
  static auto Initiate(Start start, Token& token) {
    return net::async_initiate<Token, void(error_code, std::size_t)>(
        [start](auto handler) { start(Completion(std::move(handler))); }, token);
  }
  void Drain(Completion done);

  Socket socket_;
  std::array<char, 4096> sink_;
  std::chrono::steady_clock::time_point drainEnd_;
};

std::unique_ptr<Stream> MakePlainStream(Socket socket);
/// The context outlives the call only.
std::unique_ptr<Stream> MakeSecureStream(Socket socket, net::ssl::context& context);

// What Beast's WebSocket asks of a stream beside reading and writing.

template <class Token>
void async_teardown(boost::beast::role_type, Stream& stream, Token&& token) {
  stream.async_hang_up(
      [token = std::forward<Token>(token)](error_code ec, std::size_t) mutable { token(ec); });
}
void teardown(boost::beast::role_type, Stream& stream, error_code& ec);
void beast_close_socket(Stream& stream);

}  // namespace host
