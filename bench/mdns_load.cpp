// Asks a responder for one name at a steady pace, each time for an answer to itself alone, and
// tells how many answers came and how long they took:
//   qv_mdns_load NAME COUNT SECONDS
// Prints one line: sent, answered, median and 99th percentile in microseconds.
#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "discovery/network.h"
#include "discovery/wire/packet_writer.h"

namespace {

using namespace mdns_wrapper;
using Clock = MdnsNetwork::Clock;
using std::chrono::duration_cast;
using std::chrono::microseconds;

constexpr std::chrono::milliseconds kLastAnswers{500};

class Load {
 public:
  Load(SystemNetwork& network, int socket, const SocketAddress& group, const char* name,
       std::size_t count)
      : network_(network), socket_(socket), group_(group), sent_(count), took_(count) {
    size_ = MakeQuery(query_, name, MDNS_TYPE_A, 0);
  }

  void run(std::chrono::duration<double> time) {
    const auto begin = Clock::now();
    const auto pause = duration_cast<Clock::duration>(time / sent_.size());
    for (std::size_t i = 0; i < sent_.size(); ++i) {
      readUntil(begin + pause * static_cast<int>(i));
      query_[0] = static_cast<std::uint8_t>(i >> 8);
      query_[1] = static_cast<std::uint8_t>(i);
      sent_[i] = Clock::now();
      network_.send(socket_, group_, std::span(query_).first(size_));
    }
    readUntil(Clock::now() + kLastAnswers);
  }

  void tell() const {
    std::vector<double> times;
    for (const auto& took : took_) {
      if (took) times.push_back(std::chrono::duration<double, std::micro>(*took).count());
    }
    std::sort(times.begin(), times.end());
    const auto at = [&](double part) {
      return times.empty() ? 0.0 : times[static_cast<std::size_t>(part * (times.size() - 1.0))];
    };
    std::printf("%zu %zu %.0f %.0f\n", sent_.size(), times.size(), at(0.5), at(0.99));
  }

 private:
  void readUntil(Clock::time_point end) {
    for (;;) {
      while (const auto received = network_.receive(socket_, buffer_)) {
        const auto now = Clock::now();
        const std::size_t id = static_cast<std::size_t>(buffer_[0]) << 8 | buffer_[1];
        if (received->size > 12 && id < took_.size() && !took_[id]) took_[id] = now - sent_[id];
      }
      const auto left = end - Clock::now();
      if (left <= Clock::duration::zero()) return;
      pollfd entry{socket_, POLLIN, 0};
      const auto nanoseconds = duration_cast<std::chrono::nanoseconds>(left).count();
      const timespec time{static_cast<time_t>(nanoseconds / 1'000'000'000),
                          static_cast<long>(nanoseconds % 1'000'000'000)};
      ::ppoll(&entry, 1, &time, nullptr);
    }
  }

  SystemNetwork& network_;
  const int socket_;
  const SocketAddress group_;
  std::array<std::uint8_t, 512> query_{};
  std::size_t size_ = 0;
  std::vector<Clock::time_point> sent_;
  std::vector<std::optional<Clock::duration>> took_;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer_{};
};

}  // namespace

int main(int argc, char** argv) {
  const std::size_t count = argc == 4 ? std::strtoul(argv[2], nullptr, 10) : 0;
  SystemNetwork network;
  const auto interfaces = network.interfaces();
  if (count == 0 || count > 65536 || !interfaces || interfaces->empty()) {
    std::fputs("qv_mdns_load NAME COUNT SECONDS, on a machine with a network\n", stderr);
    return 2;
  }
  const int socket = network.open(interfaces->front(), 0);
  if (socket < 0) {
    std::perror("qv_mdns_load: no socket");
    return 1;
  }
  Load load(network, socket, GroupOf(interfaces->front().address.family()), argv[1], count);
  load.run(std::chrono::duration<double>(std::strtod(argv[3], nullptr)));
  load.tell();
  network.close(socket);
  return 0;
}
