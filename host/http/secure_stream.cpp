// The one place that pays for the templates of TLS.
#include <algorithm>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <vector>

#include "host/http/stream.h"

namespace host {

namespace {

/// What one record of TLS holds (RFC 8446, 5.1).
constexpr std::size_t kRecord = 16 * 1024;

class SecureStream : public Stream {
 public:
  SecureStream(Socket itsSocket, net::ssl::context& context)
      : Stream(std::move(itsSocket)), tls_(socket(), context) {}

  std::size_t WriteNow(net::const_buffer, error_code&) override { return 0; }

 private:
  void StartRead(net::mutable_buffer buffer, Completion done) override {
    tls_.async_read_some(buffer, std::move(done));
  }
  /// In one record what fits into one: each costs a header, a checksum and a call of the system.
  void StartWrite(const Buffers& buffers, Completion done) override {
    net::const_buffer bytes = *buffers.begin();
    if (buffers.end() - buffers.begin() > 1 && bytes.size() < kRecord) {
      record_.resize(std::min(net::buffer_size(buffers), kRecord));
      net::buffer_copy(net::buffer(record_), buffers);
      bytes = net::buffer(record_);
    }
    tls_.async_write_some(bytes, std::move(done));
  }
  void StartHandshake(Completion done) override {
    tls_.async_handshake(net::ssl::stream_base::server, std::move(done));
  }
  void StartHangUp(Completion done) override {
    tls_.async_shutdown(
        [this, done = std::move(done)](error_code) mutable { EndAndDrain(std::move(done)); });
  }

  net::ssl::stream<Socket&> tls_;
  std::vector<char> record_;  // kept while it is being written
};

}  // namespace

std::unique_ptr<Stream> MakeSecureStream(Socket socket, net::ssl::context& context) {
  return std::make_unique<SecureStream>(std::move(socket), context);
}

}  // namespace host
