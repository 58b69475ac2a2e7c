#include "host/http/stream.h"

namespace host {

namespace {

constexpr std::chrono::seconds kLongestDrain(5);

class PlainStream : public Stream {
 public:
  explicit PlainStream(Socket itsSocket) : Stream(std::move(itsSocket)) {
    error_code ignored;
    socket().non_blocking(true, ignored);
  }

  std::size_t WriteNow(net::const_buffer bytes, error_code& ec) override {
    const std::size_t written = socket().write_some(bytes, ec);
    if (ec == net::error::would_block) ec = {};
    return written;
  }

 private:
  void StartRead(net::mutable_buffer buffer, Completion done) override {
    socket().async_read_some(buffer, std::move(done));
  }
  void StartWrite(const Buffers& buffers, Completion done) override {
    socket().async_write_some(buffers, std::move(done));
  }
  void StartHandshake(Completion done) override { done(); }
  void StartHangUp(Completion done) override { EndAndDrain(std::move(done)); }
};

}  // namespace

void Stream::EndAndDrain(Completion done) {
  error_code ignored;
  socket_.shutdown(tcp::socket::shutdown_send, ignored);
  drainEnd_ = std::chrono::steady_clock::now() + kLongestDrain;
  Drain(std::move(done));
}

void Stream::Drain(Completion done) {
  socket_.async_read_some(
      net::buffer(sink_), [this, done = std::move(done)](error_code ec, std::size_t) mutable {
        // A client that never stops sending must not keep the thread: reads that find bytes at once
        // are not cancelled by a deadline.
        const bool isOver = ec || std::chrono::steady_clock::now() >= drainEnd_;
        isOver ? done(ec == net::error::eof ? error_code() : ec) : Drain(std::move(done));
      });
}

std::unique_ptr<Stream> MakePlainStream(Socket socket) {
  return std::make_unique<PlainStream>(std::move(socket));
}

void teardown(boost::beast::role_type, Stream& stream, error_code& ec) {
  stream.socket().shutdown(tcp::socket::shutdown_both, ec);
}

void beast_close_socket(Stream& stream) {
  error_code ignored;
  stream.socket().close(ignored);
}

}  // namespace host
