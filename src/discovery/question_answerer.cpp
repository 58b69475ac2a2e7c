#include "discovery/question_answerer.h"

#include <algorithm>
#include <utility>

namespace mdns_wrapper {
namespace {

using std::chrono::seconds;

constexpr std::uint16_t kClassAny = 255;    // RFC 1035, 3.2.5
constexpr seconds kBetweenMulticasts{1};    // RFC 6762, 6
constexpr std::size_t kFewestSources = 50;  // that can use up the unicast answers of a second
constexpr std::uint32_t kKnownFor = MDNS_MULTICAST_ANSWER.ttl / 2;  // RFC 6762, 7.1

/// The records of each of our names, which are answered together.
constexpr std::array<AdvertisedSet, 4> kByName = {{{Advertised::kTypes},
                                                   {Advertised::kPointer},
                                                   {Advertised::kService, Advertised::kText},
                                                   {Advertised::kIpv4, Advertised::kIpv6}}};

/// What comes with answers about the service: all that is needed to use it. Resolvers by name ask
/// for nothing else.
constexpr AdvertisedSet kWithService = {Advertised::kService, Advertised::kIpv4, Advertised::kIpv6,
                                        Advertised::kText};
constexpr AdvertisedSet kAboutService = {Advertised::kPointer, Advertised::kService,
                                         Advertised::kText};

AdvertisedSet AdditionalTo(AdvertisedSet answer) {
  return (answer & kAboutService).empty() ? AdvertisedSet() : kWithService.without(answer);
}

/// What a question asks of the records under its name.
AdvertisedSet WantedBy(std::uint16_t type, AdvertisedSet named) {
  switch (type) {
    case MDNS_TYPE_PTR:
      return named & AdvertisedSet{Advertised::kTypes, Advertised::kPointer};
    case MDNS_TYPE_SRV:
      return named & AdvertisedSet{Advertised::kService};
    case MDNS_TYPE_TXT:
      return named & AdvertisedSet{Advertised::kText};
    case MDNS_TYPE_A:
      return named & AdvertisedSet{Advertised::kIpv4};
    case MDNS_TYPE_AAAA:
      return named & AdvertisedSet{Advertised::kIpv6};
    case MDNS_TYPE_ANY:
      return named.without({Advertised::kText});  // it comes with the service
    default:
      return {};
  }
}

}  // namespace

QuestionAnswerer::QuestionAnswerer(MdnsNetwork& network, SocketSet& sockets, NeighbourLog& log,
                                   std::size_t unicastASecond)
    : network_(network),
      sockets_(sockets),
      log_(log),
      unicast_(unicastASecond, std::max<std::size_t>(unicastASecond / kFewestSources, 1)) {}

void QuestionAnswerer::answer(const AdvertisedRecords& records, int socket, PacketBytes bytes,
                              const SocketAddress& from, bool toGroup) {
  PacketReader reader(bytes);
  mdns_header header;
  if (!reader.read(header) || header.questions == 0) return;
  if ((header.flags & (MDNS_FLAG_RESPONSE | MDNS_OPCODE | MDNS_RESPONSE_CODE)) != 0) return;
  if (!toGroup && !sockets_.isOnLink(from)) return;

  const bool simpleAsker = from.port() != MDNS_PORT;  // RFC 6762, 6.7
  for (Asked& asked : asked_) asked.toGroup = asked.toAsker = {};
  AdvertisedSet wanted;
  mdns_question question;
  int left = header.questions;
  // Ends with the packet, whatever the count: a question takes up five bytes at least.
  for (; left > 0 && reader.read(question); --left) {
    const std::uint16_t qclass = question.qclass & ~MDNS_UNICAST_RESPONSE;
    if (qclass != MDNS_CLASS_IN && qclass != kClassAny) continue;
    const char* const word = TypeWord(question.type);
    const std::string_view name = question.name.view();
    if (word != nullptr && log_.mayWrite())
      mdns_log("Query %s %.*s\n", word, Width(name), name.data());
    const AdvertisedSet here = WantedBy(question.type, records.under(name));
    for (std::size_t i = 0; i < kNames; ++i) {
      const AdvertisedSet of = here & kByName[i];
      if (of.empty()) continue;
      Asked& asked = asked_[i];
      if (!question.wantsUnicast()) asked.toGroup = asked.toGroup | of;
      if (!question.wantsUnicast() && !simpleAsker) continue;
      if (asked.toAsker.empty()) asked.first = question;
      asked.toAsker = asked.toAsker | of;
    }
    wanted = wanted | here;
  }
  if (wanted.empty()) return;

  AdvertisedSet known;
  mdns_received record;
  // Ends with the packet, too: a record takes up eleven bytes at least.
  for (int answers = left == 0 ? header.answers : 0; answers > 0 && reader.read(record);
       --answers) {
    const auto kind = records.find(record);
    if (kind && record.ttl >= kKnownFor && records.hasSameData(*kind, bytes, record)) {
      known.add(*kind);
    }
  }
  AdvertisedSet group;
  for (const Asked& asked : asked_) {
    group = group | asked.toGroup;
    const AdvertisedSet toAsker = asked.toAsker.without(known);
    if (!toAsker.empty()) sendToAsker(records, socket, from, header.id, asked.first, toAsker);
  }
  sendToGroup(records, socket, group.without(known));
}

void QuestionAnswerer::sendToAsker(const AdvertisedRecords& records, int socket,
                                   const SocketAddress& to, std::uint16_t queryId,
                                   const mdns_question& question, AdvertisedSet wanted) {
  collect(records, wanted, AdditionalTo(wanted));
  if (answer_.empty()) return;
  if (const auto now = network_.now(); now - second_ >= seconds(1)) {
    second_ = now;
    unicast_.beginRound();
  }
  if (!unicast_.take(to)) return;
  logAnswers("unicast");
  const AskedQuestion asked{queryId, question.name.view(), question.type, question.qclass};
  mdns_query_answer_unicast(network_, socket, to, buffer_, asked, answer_, {}, additional_);
}

void QuestionAnswerer::sendToGroup(const AdvertisedRecords& records, int socket,
                                   AdvertisedSet wanted) {
  if (wanted.empty()) return;
  Link& link = links_[socket];
  const Time now = network_.now();
  AdvertisedSet recent;
  for (const Advertised kind : ADVERTISED_KINDS) {
    if (now - link.sent[kind] < kBetweenMulticasts) recent.add(kind);
  }
  link.waiting = link.waiting | (wanted & recent);
  for (const AdvertisedSet& name : kByName) {
    const AdvertisedSet answer = (wanted & name).without(recent);
    const AdvertisedSet additional = AdditionalTo(answer).without(recent);
    collect(records, answer, additional);
    if (answer_.empty()) continue;
    for (const Advertised kind : ADVERTISED_KINDS) {
      if (!(answer | additional).has(kind)) continue;
      link.sent[kind] = now;
      recent.add(kind);
    }
    logAnswers("multicast");
    mdns_answer_multicast_rclass_ttl(sockets_, socket, buffer_, MDNS_MULTICAST_ANSWER.rclass,
                                     answer_, additional_, MDNS_MULTICAST_ANSWER.ttl);
  }
}

void QuestionAnswerer::sendWaiting(const AdvertisedRecords& records) {
  const auto open = sockets_.sockets();
  std::erase_if(links_, [&](const auto& link) {
    return std::find(open.begin(), open.end(), link.first) == open.end();
  });
  for (auto& [socket, link] : links_) {
    const AdvertisedSet waiting = link.waiting;
    link.waiting = {};
    sendToGroup(records, socket, waiting);
  }
}

std::optional<QuestionAnswerer::Time> QuestionAnswerer::nextWaiting() const {
  std::optional<Time> next;
  for (const auto& [socket, link] : links_) {
    for (const Advertised kind : ADVERTISED_KINDS) {
      if (!link.waiting.has(kind)) continue;
      const Time due = link.sent[kind] + kBetweenMulticasts;
      next = next ? std::min(*next, due) : due;
    }
  }
  return next;
}

void QuestionAnswerer::noteAnnouncement(int socket) {
  Link& link = links_[socket];
  const Time now = network_.now();
  for (const Advertised kind : ADVERTISED_KINDS) {
    if (kind != Advertised::kTypes) link.sent[kind] = now;
  }
  link.waiting = link.waiting & AdvertisedSet{Advertised::kTypes, Advertised::kText};
}

void QuestionAnswerer::collect(const AdvertisedRecords& records, AdvertisedSet answer,
                               AdvertisedSet additional) {
  answer_.clear();
  additional_.clear();
  for (const Advertised kind : ADVERTISED_KINDS) {
    if (!answer.has(kind) && !additional.has(kind)) continue;
    std::vector<mdns_record_t>& list = answer.has(kind) ? answer_ : additional_;
    const RecordList own = records.of(kind);
    list.insert(list.end(), own.begin(), own.end());
  }
}

void QuestionAnswerer::logAnswers(const char* way) {
  bool text = false;
  for (const mdns_record_t& answer : answer_) {
    // The pairs of a text are one record.
    if (std::holds_alternative<mdns_txt>(answer.data) && std::exchange(text, true)) continue;
    if (!log_.mayWrite()) continue;
    std::string_view told = answer.name;
    if (const auto* ptr = std::get_if<mdns_ptr>(&answer.data)) told = ptr->target;
    if (const auto* srv = std::get_if<mdns_srv>(&answer.data)) {
      mdns_log("  --> answer %.*s port %d (%s)\n", Width(srv->target), srv->target.data(),
               srv->port, way);
    } else if (const auto* a = std::get_if<sockaddr_in>(&answer.data)) {
      mdns_log("  --> answer %.*s IPv4 %s (%s)\n", Width(told), told.data(),
               SocketAddress(*a).addressText().c_str(), way);
    } else if (const auto* aaaa = std::get_if<sockaddr_in6>(&answer.data)) {
      mdns_log("  --> answer %.*s IPv6 %s (%s)\n", Width(told), told.data(),
               SocketAddress(*aaaa).addressText().c_str(), way);
    } else {
      mdns_log("  --> answer %.*s (%s)\n", Width(told), told.data(), way);
    }
  }
}

}  // namespace mdns_wrapper
