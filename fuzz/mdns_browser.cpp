// Any bytes as replies to the browser: what it publishes has a kind, each service once, no tags,
// and comes back from the form in which it is handed over. The input is a run of packets, each
// behind its length in two bytes.
#include "discovery/browser_loop.h"
#include "discovery/browser_worker.h"
#include "fuzz/fuzz_target.h"
#include "fuzz/null_network.h"

using namespace mdns_wrapper;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static NullNetwork network;
  mDNSQueryService browser(network);
  PacketReader packets({data, size});
  std::uint16_t length = 0;
  PacketBytes packet;
  for (int cycle = 0; cycle < 2; ++cycle) {
    mDNSQueryService::QueryResultCallback(&browser, {}, MDNS_CYCLE_BEGINS);
    // Ends with the input: every turn takes two bytes at least.
    while (packets.read(length)) {
      if (length == 0xFFFF) break;  // the next cycle
      if (!packets.readBytes(length, packet)) break;
      ParseReply(packet, 0, {}, [&](const mdns_query_result& result) {
        mDNSQueryService::QueryResultCallback(&browser, result, MDNS_RECORD_FOUND);
      });
    }
    mDNSQueryService::QueryResultCallback(&browser, {}, MDNS_CYCLE_ENDS);
  }
  bool changed = false;
  const ServiceList list = browser.getServiceInfos(changed);
  ServiceList seen;
  for (const DNSServiceInfo& info : list) {
    Require(info.type != SERVICE_UNKNOWN && info.tags.empty(), "listed services are known ones");
    Require(!mDNSQueryService::ServiceInfosExsts(seen, info), "a service is listed once");
    seen.push_back(info);
  }
  Require(browser.getSeenServices().size() == list.size(), "each was seen");
  Require(mDNSQueryService::Deserialize(mDNSQueryService::Serialize(list)) == list,
          "the list comes back");
  browser.getServiceInfos(changed);
  Require(!changed, "a change is told once");
  return 0;
}
