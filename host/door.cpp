#include "host/door.h"

#include <json/value.h>

#include <algorithm>
#include <array>

#include "command/command_table.h"
#include "command/command_text.h"
#include "command/json_command.h"
#include "os/text.h"

namespace host {

namespace {

constexpr std::array<std::string_view, 3> kOwnNames = {"localhost", "127.0.0.1", "[::1]"};
constexpr int kRefused = -2205;

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

/// Whether a comma-separated list holds the origin; blanks around an entry do not count.
bool Lists(std::string_view list, std::string_view origin) {
  while (!list.empty()) {
    const auto comma = std::min(list.find(','), list.size());
    std::string_view item = list.substr(0, comma);
    list.remove_prefix(std::min(comma + 1, list.size()));
    const auto begin = item.find_first_not_of(" \t");
    if (begin == item.npos) continue;
    item = item.substr(begin, item.find_last_not_of(" \t") - begin + 1);
    if (item == origin) return true;
  }
  return false;
}

std::string AddItTo(const char* key) {
  return std::string(": add it to \"") + key + "\" in section QV of QVConfiguration.ini.";
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

Entry Door::Judge(const std::vector<std::string>& hosts, const std::vector<std::string>& origins,
                  int port, bool secure) const {
  if (hosts.size() != 1 || !Contains(OwnAddresses(port, secure, ""), ascii::Lower(hosts.front()))) {
    return {
        Rights::None,
        {},
        "The Host header must be there once and be localhost, 127.0.0.1 or [::1] with the port " +
            std::to_string(port) + "."};
  }
  if (origins.empty()) return {Rights::Manage, {}, ""};
  if (origins.size() > 1) return {Rights::None, {}, "There must be one Origin header at most."};
  const Origin origin = origins.front();
  const Rights rights = RightsOf(origin);
  return {rights, origin, rights == Rights::None ? RefuseOrigin(*origin) : ""};
}

Rights Door::RightsOf(const Origin& origin) const {
  if (!origin) return Rights::Manage;
  // "null" stands for every page that hides where it comes from, so no list can mean one of them.
  if (origin->empty() || *origin == "null") return Rights::None;
  if (IsOwn(*origin)) return Rights::Manage;
  const OriginLists lists = lists_();
  if (Lists(lists.manage, *origin)) return Rights::Manage;
  return lists.anyMayAsk || Lists(lists.allowed, *origin) ? Rights::Ask : Rights::None;
}

std::string Door::RefuseCommand(const Origin& origin, Rights rights, std::string_view path,
                                std::string_view text) const {
  if (rights == Rights::Manage) return "";
  if (rights == Rights::None) return RefuseOrigin(origin.value_or(""));
  const std::string function = FindFunctionName(path, text);
  // What names no function runs none.
  if (function.empty() || RightsNeeded(function) == CommandRights::Ask) return "";
  return "The origin " + origin.value_or("") + " may not run " + function +
         AddItTo("ManageOrigins");
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
