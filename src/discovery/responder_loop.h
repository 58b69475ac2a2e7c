// The responder's loop: announces a service, answers questions for it, and takes it back at the
// end.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "discovery/advertised_records.h"
#include "discovery/network.h"
#include "os/mutex.h"

namespace mdns_wrapper {

/// What a responder's loop tells of itself. Outlives the loop. Any thread may call.
class ResponderReport {
 public:
  /// Another machine that answers with our names.
  struct Rival {
    std::string address;
    std::chrono::system_clock::time_point lastHeard;
  };
  struct State {
    bool announced = false;  ///< by one socket at least
    std::string problem;     ///< what keeps it from being announced everywhere, "" for nothing
    std::optional<Rival> rival;
  };

  State state() const;
  void tell(bool announced, std::string problem);
  void tellRival(std::string address);
  /// For another service: nothing is known of it.
  void clear();

 private:
  mutable Mutex mutex_;
  State state_ QV_GUARDED_BY(mutex_);
};

/// Answers to single askers in one second; a fiftieth of them to each. Many times what a network
/// of people and printers asks for.
inline constexpr std::size_t MDNS_UNICAST_ANSWERS_A_SECOND = 1000;

/// Runs until a stop is requested; then 0. Ends at once with -1 when there is no socket to be had
/// or no service type.
///
/// The service is announced twice, a second apart, and so again by a socket that is new, and by all
/// when an address of this machine has changed or the machine was suspended (RFC 6762, 8.3
/// and 8.4). Interfaces that come and go are noticed within a second or two. An IPv4 address that
/// is told and was this machine's own is followed when it changes.
int service_mdns(const mdns_service_info& info, const StopRequest& stop, MdnsNetwork& network,
                 ResponderReport* report = nullptr,
                 std::size_t unicastASecond = MDNS_UNICAST_ANSWERS_A_SECOND);

}  // namespace mdns_wrapper
