#include "discovery/mdns_send.h"

#include <cerrno>

namespace mdns_wrapper {
namespace {

template <class Send>
bool SendBuilt(std::span<const std::uint8_t> buffer, std::size_t size, Send send) {
  if (size == 0) {
    errno = EMSGSIZE;
    return false;
  }
  return send(buffer.first(size));
}

}  // namespace

bool mdns_answer_multicast_rclass_ttl(SocketSet& sockets, int socket,
                                      std::span<std::uint8_t> buffer, std::uint16_t rclass,
                                      RecordList answer, RecordList additional, std::uint32_t ttl) {
  return SendBuilt(buffer, MakeMulticastAnswer(buffer, answer, additional, {rclass, ttl}),
                   [&](auto packet) { return sockets.sendToGroup(socket, packet); });
}

bool mdns_query_answer_unicast(MdnsNetwork& network, int socket, const SocketAddress& to,
                               std::span<std::uint8_t> buffer, const AskedQuestion& question,
                               RecordList answer, RecordList authority, RecordList additional) {
  return SendBuilt(buffer, MakeUnicastAnswer(buffer, question, answer, authority, additional),
                   [&](auto packet) { return network.send(socket, to, packet); });
}

bool mdns_query_send(SocketSet& sockets, int socket, std::uint16_t sourcePort,
                     std::span<std::uint8_t> buffer, std::string_view name, std::uint16_t type) {
  return SendBuilt(buffer, MakeQuery(buffer, name, type, sourcePort),
                   [&](auto packet) { return sockets.sendToGroup(socket, packet); });
}

}  // namespace mdns_wrapper
