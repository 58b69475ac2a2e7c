#include "discovery/question_answerer.h"

#include "discovery/mdns_log.h"

namespace mdns_wrapper {
namespace {

/// Of one record on one link, which needs one a second (RFC 6762, 6); the rest is for questions
/// that come close together. What a flood of questions makes for all stays small beside the flood.
constexpr int kMostMulticastsASecond = 50;

constexpr std::uint16_t kClassAny = 255;  // RFC 1035, 3.2.5

}  // namespace

/// The answers to one packet.
class QuestionAnswerer::Packet {
 public:
  Packet(QuestionAnswerer& owner, const AdvertisedRecords& records, int socket,
         const SocketAddress& from, std::uint16_t queryId, bool log)
      : owner_(owner), records_(records), socket_(socket), from_(from), id_(queryId), log_(log) {}

  void answer(const mdns_question& question) {
    const std::string_view name = question.name.view();
    const auto asks = [&](std::uint16_t type) {
      return question.type == type || question.type == MDNS_TYPE_ANY;
    };
    if (NamesEqual(name, MDNS_ALL_TYPES)) {
      if (asks(MDNS_TYPE_PTR)) send(kTypes, question, One(records_.allTypes()), {});
    } else if (NamesEqual(name, records_.serviceType())) {
      if (asks(MDNS_TYPE_PTR)) send(kPointer, question, One(records_.pointer()), records_.all());
    } else if (NamesEqual(name, records_.instanceName())) {
      if (asks(MDNS_TYPE_SRV)) {
        send(kService, question, One(records_.service()), records_.withoutService());
      } else if (question.type == MDNS_TYPE_TXT) {
        send(kText, question, records_.text(), records_.withoutText());
      }
    } else if (NamesEqual(name, records_.hostName())) {
      if (asks(MDNS_TYPE_A) && records_.ipv4()) send(kIpv4, question, One(*records_.ipv4()), {});
      if (asks(MDNS_TYPE_AAAA) && records_.ipv6()) send(kIpv6, question, One(*records_.ipv6()), {});
    }
  }

 private:
  enum Subject : unsigned { kTypes, kPointer, kService, kText, kIpv4, kIpv6, kSubjects };

  /// The list lives as long as the record, which for a new one is until the end of the call.
  static RecordList One(const mdns_record_t& record) { return RecordList(&record, 1); }

  void send(Subject subject, const mdns_question& question, RecordList answer,
            RecordList additional) {
    // To the group an answer says the same whichever way it was asked for; to the asker it repeats
    // the question.
    const bool unicast = question.wantsUnicast();
    const unsigned way = !unicast ? 0U : question.type != MDNS_TYPE_ANY ? 1U : 2U;
    const unsigned bit = 1U << (subject + way * kSubjects);
    if ((sent_ & bit) != 0) return;
    sent_ |= bit;
    if (!unicast && !owner_.mayMulticast(socket_, subject)) return;
    if (log_) logAnswer(answer.front(), unicast ? "unicast" : "multicast");
    if (unicast) {
      const AskedQuestion asked{id_, question.name.view(), question.type, question.qclass};
      mdns_query_answer_unicast(owner_.network_, socket_, from_, owner_.buffer_, asked, answer, {},
                                additional);
    } else {
      mdns_answer_multicast_rclass_ttl(owner_.sockets_, socket_, owner_.buffer_,
                                       MDNS_MULTICAST_ANSWER.rclass, answer, additional,
                                       MDNS_MULTICAST_ANSWER.ttl);
    }
  }

  void logAnswer(const mdns_record_t& answer, const char* way) const {
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

  QuestionAnswerer& owner_;
  const AdvertisedRecords& records_;
  const int socket_;
  const SocketAddress& from_;
  const std::uint16_t id_;
  const bool log_;
  unsigned sent_ = 0;
};

bool QuestionAnswerer::mayMulticast(int socket, unsigned subject) {
  const auto now = network_.now();
  if (now - second_ >= std::chrono::seconds(1)) {
    second_ = now;
    multicasts_.clear();
  }
  return multicasts_[{socket, subject}]++ < kMostMulticastsASecond;
}

void QuestionAnswerer::answer(const AdvertisedRecords& records, int socket, PacketBytes bytes,
                              const SocketAddress& from, bool log) {
  PacketReader reader(bytes);
  mdns_header header;
  if (!reader.read(header) || header.questions == 0) return;
  if ((header.flags & (MDNS_FLAG_RESPONSE | MDNS_OPCODE | MDNS_RESPONSE_CODE)) != 0) return;
  if (!sockets_.isOnLink(from)) return;
  Packet packet(*this, records, socket, from, header.id, log);
  mdns_question question;
  // Ends with the packet, whatever the count: a question takes up five bytes at least.
  for (int left = header.questions; left > 0 && reader.read(question); --left) {
    const std::uint16_t qclass = question.qclass & ~MDNS_UNICAST_RESPONSE;
    if (qclass != MDNS_CLASS_IN && qclass != kClassAny) continue;
    const char* const word = TypeWord(question.type);
    if (log && word != nullptr) {
      const std::string_view name = question.name.view();
      mdns_log("Query %s %.*s\n", word, Width(name), name.data());
    }
    packet.answer(question);
  }
}

}  // namespace mdns_wrapper
