// Any bytes as packets to the responder: it answers with whole packets that it would itself ignore,
// few for each, and never speaks without being asked.
#include <deque>
#include <string>
#include <vector>

#include "discovery/question_answerer.h"
#include "discovery/reply_parser.h"
#include "discovery/responder_loop.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/null_network.h"

namespace {

using namespace mdns_wrapper;

mdns_service_info Service() {
  mdns_service_info info;
  info.hostname = "me";
  info.service = "_privet._tcp.local.";
  info.port = 18626;
  info.ipv4 = "10.0.0.5";
  info.ipv6 = "10.0.0.6";
  info.id = info.ty = info.tags = "me";
  return info;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const mdns_service_info kService = Service();
  static const AdvertisedRecords kRecords(kService, nullptr);
  NullNetwork network;
  SocketSet sockets(network, MDNS_PORT);
  const std::vector<int> opened = sockets.refresh();
  NeighbourLog log;
  QuestionAnswerer answerer(network, sockets, log, MDNS_UNICAST_ANSWERS_A_SECOND);
  // The first byte tells from where it comes.
  const unsigned way = size == 0 ? 0U : data[0];
  SocketAddress from = network.neighbour();
  from.setPort((way & 1) != 0 ? MDNS_PORT : 40000);
  answerer.answer(kRecords, opened.front(), {data, size}, from, (way & 2) != 0);

  const std::vector<std::string> answers = std::move(network.sent);
  Require(answers.size() <= 8, "each name is answered once to the group and once to the asker");
  PacketReader question({data, size});
  mdns_header header;
  const bool asks =
      question.read(header) && header.questions > 0 && (header.flags & MDNS_FLAG_RESPONSE) == 0;
  Require(asks || answers.empty(), "only questions are answered");
  for (const std::string& answer : answers) {
    const PacketBytes bytes(reinterpret_cast<const std::uint8_t*>(answer.data()), answer.size());
    Require(PacketReader(bytes).read(header) && header.answers > 0 && header.answers <= 2,
            "an answer has the records of one name");
    Require(ParseReply(bytes, 0, {}, [](const mdns_query_result&) {}) ==
                std::size_t{header.answers} + header.additionals,
            "an answer is whole");
    answerer.answer(kRecords, opened.front(), bytes, from, true);
  }
  Require(network.sent.empty(), "answers are not answered");
  return 0;
}
