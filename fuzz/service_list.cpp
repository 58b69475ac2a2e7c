// A list of services from any bytes: read whole or not at all, and written back as it was.
#include "discovery/service_list.h"

#include "fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const mdns_wrapper::ServiceList services = mdns_wrapper::Deserialize(bytes);
  Require(services.size() * 44 <= size, "no record comes from less than its 44 bytes");
  if (services.empty()) return 0;
  const std::string written = mdns_wrapper::Serialize(services);
  Require(bytes.starts_with(written), "a list that was read is written with the same bytes");
  Require(mdns_wrapper::Deserialize(written) == services, "a list that was written reads back");
  Require(mdns_wrapper::Deserialize(written.substr(0, written.size() - 1)).empty(),
          "a list without its last byte is no list");
  return 0;
}
