// Every limit of the service in plain view: what a client may cost before it is told so.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace host {

/// How much of what all share one page's origin, or one other account of the machine, may take.
constexpr std::size_t ShareOf(std::size_t all) { return std::max<std::size_t>(1, all / 4); }

struct Limits {
  static constexpr std::size_t kMiB = 1024 * 1024;
  /// Longer texts take long to be read, whatever they run: never on a thread that serves sockets.
  static constexpr std::size_t kQuickBytes = 4 * 1024;
  /// After a text or a reply of this size free memory is given back to the system.
  static constexpr std::size_t kLargeBytes = 128 * 1024;

  std::size_t headerBytes = 32 * 1024;    ///< of a request; beyond it 431
  std::size_t textBytes = 16 * kMiB;      ///< of a command's text; beyond it 413 or close code 1009
  std::size_t uploadBytes = 512 * kMiB;   ///< of a binary body; beyond it 413
  std::size_t uploadsAtOnce = 2;          ///< each is a file of that size; beyond it 503
  std::size_t connections = 256;          ///< open at once; beyond it the longest idle one goes
  std::size_t reservedConnections = 32;   ///< beyond them, while all work: GET /health, else 503;
                                          ///< and as many more that are just being closed
  std::size_t waitingMessages = 64;       ///< read ahead on a WebSocket while a command runs; then
  std::size_t waitingBytes = 16 * kMiB;   ///< the client's further messages wait in its socket
  std::size_t outboundBytes = 64 * kMiB;  ///< of replies not yet taken; beyond it close code 1013
  std::size_t queueBytes = 256 * kMiB;  ///< of all texts and replies together; beyond it 503, 1013

  /// How long a client may be silent that owes us something: a header, the next 64 KiB of a body, a
  /// handshake, room for the next 64 KiB of our reply. A kept-alive connection is closed after it,
  /// a WebSocket is pinged at half of it and closed when the answer does not come.
  std::chrono::seconds patience{60};
  /// How long a close waits for the client's side of it, and a refused client's data is drained, so
  /// that the client gets to read why.
  std::chrono::seconds closing{3};
  /// How long the end of the service waits for running commands.
  std::chrono::seconds stopping{30};
};

}  // namespace host
