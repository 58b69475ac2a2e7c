#include "discovery/browser_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "discovery/mdns_log.h"
#include "discovery/socket_set.h"
#include "discovery/source_budget.h"

namespace mdns_wrapper {
namespace {

using std::chrono::seconds;

constexpr seconds kSilence{10};
/// Steady traffic must not keep the browser from telling what it found.
constexpr seconds kLongestRun{30};
constexpr seconds kSlice{1};
constexpr int kPauseSlices = 10;
/// Each of 400 services has ten or so.
constexpr std::size_t kMostRecordsARun = 4096;
/// Some twenty services. One machine that sends more leaves room for the others.
constexpr std::size_t kMostRecordsASource = 256;
constexpr std::uint16_t kQueryId = 0;  // RFC 6762, 18.1

/// Whether a packet says something about a service: it is an answer, of no error, and has one. (Its
/// other records belong to its answers: without one they would be taken for another sender's.)
bool IsAnswer(PacketBytes packet) {
  mdns_header header;
  constexpr std::uint16_t kKind =
      MDNS_FLAG_RESPONSE | MDNS_OPCODE | MDNS_RESPONSE_CODE;  // RFC 6762, 18.2, 18.3 and 18.11
  return PacketReader(packet).read(header) && (header.flags & kKind) == MDNS_FLAG_RESPONSE &&
         header.answers > 0;
}

class BrowserRun {
 public:
  BrowserRun(void* user, mdns_query_callback callback, MdnsNetwork& network, BrowserMemory& memory)
      : user_(user),
        callback_(callback),
        network_(network),
        known_(memory.known),
        log_(memory.log) {
    known_.beginRound();
  }

  bool open() {
    sockets_.refresh();
    const std::size_t count = sockets_.sockets().size();
    if (count == 0) {
      mdns_log("Failed to open any client sockets\n");
      return false;
    }
    mdns_log("Opened %d socket%s for mDNS query\n", static_cast<int>(count), Plural(count));
    return true;
  }

  void send(std::string_view name, std::uint16_t type) {
    const char* const word = TypeWord(type);
    mdns_log("Sending mDNS query: %.*s %s\n", Width(name), name.data(),
             word != nullptr ? word : "PTR");
    for (const int socket : sockets_.sockets()) {
      if (mdns_query_send(sockets_, socket, network_.portOf(socket), buffer_, name, type)) {
        asking_.push_back(socket);
      } else {
        mdns_log("Failed to send mDNS query: %s\n", std::strerror(errno));
      }
    }
  }

  void read(const StopRequest& stop) {
    mdns_log("Reading mDNS query replies\n");
    const auto begun = network_.now();
    auto heard = begun;
    while (!stop.made()) {
      const auto now = network_.now();
      if (now - heard >= kSilence || now - begun >= kLongestRun) break;
      log_.look(now);
      network_.wait(asking_, kSlice, stop, readable_);
      bool any = false;
      for (const int socket : readable_) any = readReplies(socket) || any;
      if (any) heard = network_.now();
    }
  }

 private:
  /// Whether there was one.
  bool readReplies(int socket) {
    bool any = false;
    for (int left = MDNS_MOST_PACKETS_A_TURN; left > 0; --left) {
      const auto received = network_.receive(socket, buffer_);
      if (!received) break;
      const SocketAddress& from = received->from;
      const PacketBytes packet = PacketBytes(buffer_).first(received->size);
      if (from.port() != MDNS_PORT || !IsAnswer(packet)) continue;  // RFC 6762, 6
      // What is sent to these sockets alone may come from far away (RFC 6762, 11).
      if (!received->toGroup && !sockets_.isOnLink(from)) continue;
      any = true;
      if (!known_.isLeft(from) && !records_.isLeft(from)) continue;
      const std::string sender = log_.isWanted() ? from.text() : std::string();
      ParseReply(packet, kQueryId, {sender, &log_}, [&](const mdns_query_result& result) {
        if (!known_.take(from) && !records_.take(from)) return;
        known_.note(from);
        callback_(user_, result, MDNS_RECORD_FOUND);
      });
    }
    return any;
  }

  void* const user_;
  const mdns_query_callback callback_;
  MdnsNetwork& network_;
  SocketSet sockets_{network_, 0};
  std::vector<int> asking_;  ///< the sockets on which the query went out
  std::vector<int> readable_;
  std::array<std::uint8_t, MDNS_PACKET_BYTES> buffer_{};
  SourceBudget records_{kMostRecordsARun, kMostRecordsASource};
  KnownSources& known_;
  NeighbourLog& log_;
};

}  // namespace

int send_mdns_query_impl(std::string_view name, std::uint16_t type, const StopRequest& stop,
                         void* user, mdns_query_callback callback, MdnsNetwork& network,
                         BrowserMemory& memory) {
  BrowserRun run(user, callback, network, memory);
  if (!run.open()) return -1;
  run.send(name, type);
  run.read(stop);
  return 0;
}

int send_mdns_query(std::string_view name, std::uint16_t type, const StopRequest& stop, void* user,
                    mdns_query_callback callback, MdnsNetwork& network) {
  BrowserMemory memory;
  const mdns_query_result nothing;
  std::vector<int> none;
  while (!stop.made()) {
    callback(user, nothing, MDNS_CYCLE_BEGINS);
    if (send_mdns_query_impl(name, type, stop, user, callback, network, memory) != 0) return -1;
    callback(user, nothing, MDNS_CYCLE_ENDS);
    mdns_log("Do next query after %d seconds\n", kPauseSlices);
    for (int slice = 0; slice < kPauseSlices && !stop.made(); ++slice) {
      network.wait({}, kSlice, stop, none);
    }
  }
  return 0;
}

}  // namespace mdns_wrapper
