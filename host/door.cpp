#include "host/door.h"

#include <json/value.h>

#include <algorithm>
#include <array>

#include "command/command_table.h"
#include "command/command_text.h"
#include "command/json_command.h"
#include "environment/logging.h"
#include "os/text.h"

namespace host {

namespace {

constexpr std::array<std::string_view, 3> kOwnNames = {"localhost", "127.0.0.1", "[::1]"};
constexpr int kRefused = -2205;
constexpr const char* kOtherUser = "This service belongs to another user of this machine.";

/// The names of this machine with the port as the scheme writes it: its default port is left out.
std::vector<std::string> OwnAddresses(int port, bool secure, std::string_view scheme) {
  std::vector<std::string> addresses;
  for (const std::string_view name : kOwnNames) {
    const std::string address = std::string(scheme).append(name);
    addresses.push_back(address + ":" + std::to_string(port));
    if (port == (secure ? 443 : 80)) addresses.push_back(address);
  }
  return addresses;
}

bool Contains(const std::vector<std::string>& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

bool Lists(std::string_view list, const std::string& origin) {
  return AnyEntry(list, [&origin](std::string_view entry) { return entry == origin; });
}

std::string AddItTo(const char* key, const char* what = "it") {
  return std::string(": add ") + what + " to \"" + key + "\" in section QV of QVConfiguration.ini.";
}

std::string RefuseOrigin(const std::string& origin) {
  if (origin == "null") return "A page without an origin of its own may not use this service.";
  return "The origin " + origin + " may not use this service" + AddItTo("AllowedOrigins");
}

}  // namespace

void Door::SetOwnPorts(const std::vector<int>& plain, const std::vector<int>& secure) {
  std::vector<std::string> own;
  const auto add = [&own](const std::vector<int>& ports, bool isSecure, std::string_view scheme) {
    for (const int port : ports) {
      for (std::string& address : OwnAddresses(port, isSecure, scheme)) {
        own.push_back(std::move(address));
      }
    }
  };
  add(plain, false, "http://");
  add(secure, true, "https://");
  const MutexLock lock(mutex_);
  own_ = std::move(own);
}

bool Door::IsOwn(const std::string& origin) const {
  const MutexLock lock(mutex_);
  return Contains(own_, origin);
}

Entry Door::Judge(const Visit& visit) const {
  Entry entry;
  entry.caller.most = visit.most;
  entry.caller.hasToken = !visit.token.empty() && isToken_ && isToken_(visit.token);
  const auto refuse = [&entry](std::string why) {
    entry.refusal = std::move(why);
    return entry;
  };
  if (visit.origins.size() == 1) entry.caller.origin = visit.origins.front();
  const Origin& origin = entry.caller.origin;
  if (visit.most == Rights::None) {
    // Any page may read this much: it could tell anyway that something listens here.
    entry.reader = origin;
    return refuse(kOtherUser);
  }
  if (visit.hosts.size() != 1 ||
      !Contains(OwnAddresses(visit.port, visit.secure, ""), ascii::Lower(visit.hosts.front()))) {
    return refuse(
        "The Host header must be there once and be localhost, 127.0.0.1 or [::1] with the port " +
        std::to_string(visit.port) + ".");
  }
  if (visit.origins.size() > 1) return refuse("There must be one Origin header at most.");
  if (!origin && visit.actsAcrossSites)
    return refuse("A page of another site must name its origin.");
  const Rights rights = RightsOf(entry.caller);
  if (rights == Rights::None) return refuse(RefuseOrigin(*origin));
  entry.rights = rights;
  entry.reader = origin;
  return entry;
}

Rights Door::RightsByOrigin(const Caller& caller) const {
  const Origin& origin = caller.origin;
  if (!origin) return Rights::Manage;
  // "null" stands for every page that hides where it comes from, so no list can mean one of them.
  if (origin->empty() || *origin == "null") return Rights::None;
  if (IsOwn(*origin)) return caller.hasToken ? Rights::Manage : Rights::Ask;
  const OriginLists lists = lists_();
  if (Lists(lists.manage, *origin)) return Rights::Manage;
  return lists.anyMayAsk || Lists(lists.allowed, *origin) ? Rights::Ask : Rights::None;
}

Rights Door::RightsOf(const Caller& caller) const {
  return std::min(caller.most, RightsByOrigin(caller));
}

std::string Door::RefuseCommand(const Caller& caller, Rights rights, std::string_view path,
                                std::string_view text) const {
  if (rights == Rights::Manage) return "";
  if (rights == Rights::None) return RefuseOrigin(caller.origin.value_or(""));
  const std::string function = FindFunctionName(path, text);
  // What names no function runs none.
  if (function.empty() || RightsNeeded(function) == CommandRights::Ask) return "";
  return RefuseManaging(caller, function);
}

std::string Door::RefuseUpload(const Caller& caller, Rights rights) const {
  return rights == Rights::Manage ? "" : RefuseManaging(caller, "LoadZipFromBytes");
}

std::string Door::RefuseManaging(const Caller& caller, std::string_view name) const {
  // A name may be as long as a text, and say anything.
  constexpr std::size_t kMostName = 64;
  const std::string function = ForLog(name.substr(0, kMostName));
  if (caller.most != Rights::Manage) {
    return "Another user of this machine may not run " + function +
           AddItTo("ManageUsers", "the account");
  }
  const std::string origin = caller.origin.value_or("");
  if (IsOwn(origin))
    return "A page of this service runs " + function + " with the console's token.";
  return "The origin " + origin + " may not run " + function + AddItTo("ManageOrigins");
}

std::string EncodeRefusal(std::string_view path, std::string_view text, const std::string& reason) {
  const JsonCommand command(BuildCommandText(path, text).text);
  ParamStack result;
  for (int i = 0; i < command.GetParameterCount(); ++i) result.push_back(command.GetParameter(i));
  result.push_back(std::make_unique<Json::Value>(false));
  std::string reply = JsonCommand::Encode(command.GetClientID(), command.GetFunctionName(), result,
                                          false, kRefused, reason);
  JsonCommand::AppendCommandId(reply, command.GetCmdId());
  return reply;
}

}  // namespace host
