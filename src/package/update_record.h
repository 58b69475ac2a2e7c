// What became of the last update: a small file in the work folder, which the service and the
// updater write and /health tells.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace package {

struct UpdateRecord {
  enum class State {
    Idle,       ///< nothing is known of an update
    Running,    ///< an updater is at work
    Done,       ///< the package is installed
    Refused,    ///< the package was not good; nothing was touched
    TakenBack,  ///< the update failed, and the old version is back
  };
  State state = State::Idle;
  std::string version;                         ///< of the package, "" when unknown
  std::string reason;                          ///< why it was refused or taken back
  std::chrono::system_clock::time_point time;  ///< of the state; of no meaning while idle
};

/// As /health tells it: "idle", "running", "done", "refused", "taken back".
const char* StateName(UpdateRecord::State state);

/// The record in a file. Idle when there is none, it is damaged, or it is older than 30 days.
UpdateRecord ReadUpdateRecord(const std::string& file);
/// Stores a state with the time of now, readable for its owner only. Any byte that is not printable
/// ASCII becomes '?', long texts are cut. What cannot be stored is lost: no update fails because of
/// it.
void WriteUpdateRecord(const std::string& file, UpdateRecord::State state, std::string_view version,
                       std::string_view reason = "");

}  // namespace package
