// The packet layer: reading an answer of ten records, writing an announcement, and what a responder
// does for a question of its own and for one of others. The counters show allocations a packet:
// they follow the pairs of a text, which a result holds, and not the labels of names, of which
// there are few or many.
#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

#include "discovery/advertised_records.h"
#include "discovery/question_answerer.h"
#include "discovery/reply_parser.h"
#include "fuzz/null_network.h"

namespace {

std::atomic<std::uint64_t> allocations{0};

void* Allocate(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace mdns_wrapper;
using Buffer = std::array<std::uint8_t, MDNS_PACKET_BYTES>;

/// A name with so many labels more than "host.local.".
std::string Name(std::int64_t labels) {
  std::string name = "host.";
  for (std::int64_t i = 0; i < labels; ++i) name += "ab.";
  return name + "local.";
}

void CountAllocations(benchmark::State& state, std::uint64_t before) {
  state.counters["allocations"] = benchmark::Counter(static_cast<double>(allocations - before),
                                                     benchmark::Counter::kAvgIterations);
  state.SetItemsProcessed(state.iterations());
}

void ReadAnswerOfTenRecords(benchmark::State& state) {
  const std::string name = Name(state.range(0));
  Buffer buffer;
  std::vector<mdns_record_t> records = {{name, sockaddr_in{}}, {name, sockaddr_in6{}}};
  while (records.size() < 7) records.push_back({name, mdns_ptr{name}});
  records.push_back({name, mdns_srv{0, 0, 1, name}});
  const mdns_record_t answer{name, mdns_ptr{name}};
  // All pairs are one record, the tenth.
  records.push_back({name, mdns_txt{"type", "twaindirect"}});
  records.push_back({name, mdns_txt{"url", "https://scanner.local/"}});
  const std::size_t size =
      MakeMulticastAnswer(buffer, RecordList(&answer, 1), records, MDNS_MULTICAST_ANSWER);
  const PacketBytes packet = PacketBytes(buffer).first(size);
  const std::uint64_t before = allocations;
  std::size_t walked = 0;
  for (auto _ : state) {
    walked = ParseReply(packet, 0, {},
                        [](const mdns_query_result& result) { benchmark::DoNotOptimize(&result); });
  }
  if (walked != 10) state.SkipWithError("the packet has not ten records");
  CountAllocations(state, before);
}
BENCHMARK(ReadAnswerOfTenRecords)->ArgName("labels")->Arg(1)->Arg(30);

void WriteAnnouncement(benchmark::State& state) {
  mdns_service_info info;
  info.hostname = Name(state.range(0));
  info.hostname.pop_back();
  info.service = "_privet._tcp.local.";
  info.ipv4 = info.ipv6 = "10.0.0.5";
  info.id = info.ty = info.modules = info.os = info.tags = "a text";
  const AdvertisedRecords records(info, nullptr);
  const mdns_record_t pointer = records.pointer();
  Buffer buffer;
  const std::uint64_t before = allocations;
  for (auto _ : state) {
    const std::size_t size = MakeMulticastAnswer(buffer, RecordList(&pointer, 1),
                                                 records.announced(), MDNS_ANNOUNCEMENT);
    if (size == 0) state.SkipWithError("the announcement does not fit");
    benchmark::DoNotOptimize(buffer);
  }
  CountAllocations(state, before);
}
BENCHMARK(WriteAnnouncement)->ArgName("labels")->Arg(1)->Arg(30);

/// One question for a unicast answer, of our name or of another.
void TakeAQuestion(benchmark::State& state) {
  mdns_service_info info;
  info.hostname = "me";
  info.service = "_privet._tcp.local.";
  info.ipv4 = info.ipv6 = "10.0.0.5";
  const AdvertisedRecords records(info, nullptr);
  NullNetwork network;
  SocketSet sockets(network, MDNS_PORT);
  const int socket = sockets.refresh().front();
  NeighbourLog log;
  QuestionAnswerer answerer(network, sockets, log, std::size_t{1} << 40);
  Buffer question;
  const char* const name = state.range(0) == 1 ? "me.local." : "somebody.local.";
  const PacketBytes packet = PacketBytes(question).first(MakeQuery(question, name, MDNS_TYPE_A, 0));
  const std::uint64_t before = allocations;
  for (auto _ : state) {
    answerer.answer(records, socket, packet, network.neighbour(), true);
    network.sent.clear();
  }
  CountAllocations(state, before);
}
BENCHMARK(TakeAQuestion)->ArgName("ours")->Arg(0)->Arg(1);

}  // namespace
