// Sends packets: builds each in the caller's buffer (see mdns_writer.h) and hands it to the
// network.
//
// Each returns whether the packet went out. When it could not be built, errno is EMSGSIZE; when it
// could not be sent, errno tells why.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "discovery/mdns_writer.h"
#include "discovery/socket_set.h"

namespace mdns_wrapper {

/// An announcement, a goodbye or an answer, to the group.
bool mdns_answer_multicast_rclass_ttl(SocketSet& sockets, int socket,
                                      std::span<std::uint8_t> buffer, std::uint16_t rclass,
                                      RecordList answer, RecordList additional, std::uint32_t ttl);

/// An answer to the asker alone, that repeats the question.
bool mdns_query_answer_unicast(MdnsNetwork& network, int socket, const SocketAddress& to,
                               std::span<std::uint8_t> buffer, const AskedQuestion& question,
                               RecordList answer, RecordList authority, RecordList additional);

/// A question, to the group. From a port other than MDNS_PORT it asks for an answer to that alone.
bool mdns_query_send(SocketSet& sockets, int socket, std::uint16_t sourcePort,
                     std::span<std::uint8_t> buffer, std::string_view name, std::uint16_t type);

}  // namespace mdns_wrapper
