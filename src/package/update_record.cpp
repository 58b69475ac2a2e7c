#include "package/update_record.h"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "os/file.h"
#include "package/strict_json.h"

namespace package {

namespace {

using State = UpdateRecord::State;
using std::chrono::seconds;
using std::chrono::system_clock;

constexpr std::array kStates = {State::Idle, State::Running, State::Done, State::Refused,
                                State::TakenBack};
constexpr std::array kNames = {"idle", "running", "done", "refused", "taken back"};
constexpr std::int64_t kForgotten = std::int64_t{30} * 24 * 60 * 60;
constexpr std::size_t kShownVersion = 64;
constexpr std::size_t kShownReason = 500;
constexpr off_t kMostRecord = 4096;  // what the two texts need at most, and more

/// In seconds since 1970.
std::int64_t Now() {
  return std::chrono::duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

std::string Printable(std::string_view text, std::size_t longest) {
  std::string printable(text.substr(0, longest));
  std::replace_if(
      printable.begin(), printable.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
  return printable;
}

}  // namespace

const char* StateName(State state) { return kNames[static_cast<std::size_t>(state)]; }

UpdateRecord ReadUpdateRecord(const std::string& file) {
  std::string text;
  const auto status = StateOf(file.c_str());
  if (!status || status->size > kMostRecord || ReadWholeFile(file.c_str(), &text) != 0) return {};
  const auto root = ParseObject(text);
  if (!root || !(*root)["time"].isInt64()) return {};
  const std::int64_t time = (*root)["time"].asInt64();
  const std::int64_t now = Now();
  // A clock that was wrong when the record was written must not keep it for good.
  if (time < now - kForgotten || time > now + kForgotten) return {};
  const auto name = std::find(kNames.begin(), kNames.end(), TextMember(*root, "state"));
  if (name == kNames.end()) return {};
  UpdateRecord record;
  record.state = kStates[static_cast<std::size_t>(name - kNames.begin())];
  record.version = Printable(TextMember(*root, "version"), kShownVersion);
  record.reason = Printable(TextMember(*root, "reason"), kShownReason);
  record.time = system_clock::time_point(seconds(time));
  return record;
}

void WriteUpdateRecord(const std::string& file, State state, std::string_view version,
                       std::string_view reason) {
  Json::Value root(Json::objectValue);
  root["state"] = StateName(state);
  root["version"] = Printable(version, kShownVersion);
  root["reason"] = Printable(reason, kShownReason);
  root["time"] = Json::Int64(Now());
  constexpr mode_t kPrivate = 0600;
  WriteWholeFile(file.c_str(), ObjectText(root), kPrivate, Flush::Later);
}

}  // namespace package
