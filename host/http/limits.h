// Every limit of the service in plain view: what a client may cost before it is told so.
#pragma once

#include <chrono>
#include <cstddef>

namespace host {

struct Limits {
  static constexpr std::size_t kMiB = 1024 * 1024;

  std::size_t headerBytes = 32 * 1024;    ///< of a request; beyond it 431
  std::size_t textBytes = 16 * kMiB;      ///< of a command's text; beyond it 413 or close code 1009
  std::size_t uploadBytes = 512 * kMiB;   ///< of a binary body; beyond it 413
  std::size_t uploadsAtOnce = 2;          ///< each is held in memory; beyond it 503
  std::size_t connections = 256;          ///< open at once; beyond it 503 and close
  std::size_t waitingMessages = 64;       ///< read ahead on a WebSocket while a command runs; then
  std::size_t waitingBytes = 16 * kMiB;   ///< the client's further messages wait in its socket
  std::size_t outboundBytes = 64 * kMiB;  ///< of replies not yet taken; beyond it close code 1013

  /// How long a client may be silent that owes us something: a header, the next 64 KiB of a body, a
  /// handshake, room for our reply. A kept-alive connection is closed after it, a WebSocket is
  /// pinged at half of it and closed when the answer does not come.
  std::chrono::seconds patience{60};
  /// How long a close waits for the client's side of it, and a refused client's data is drained, so
  /// that the client gets to read why.
  std::chrono::seconds closing{3};
  /// How long the end of the service waits for running commands.
  std::chrono::seconds stopping{30};
};

}  // namespace host
