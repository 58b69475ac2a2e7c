// A list of services from any bytes: what was read is written and read again as the same list.
#include "discovery/service_info.h"

#include <algorithm>

#include "fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const mdns_wrapper::ServiceList services = mdns_wrapper::Deserialize(bytes);
  Require(services.size() <= mdns_wrapper::MOST_SERVICES, "a list is no longer than lists may be");
  const std::string written = mdns_wrapper::Serialize(services);
  Require(mdns_wrapper::Deserialize(written) == services, "a list that was written reads back");
  // What was there to read is written as it was; where the bytes end the rest is cleared.
  const std::size_t common =
      std::mismatch(bytes.begin(), bytes.end(), written.begin(), written.end()).first -
      bytes.begin();
  Require(services.empty() || common >= std::min<std::size_t>(size, 4), "the count is kept");
  return 0;
}
