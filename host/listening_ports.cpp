#include "host/listening_ports.h"

#include <algorithm>
#include <cstdio>

#include "environment/logging.h"
#include "environment/ports.h"
#include "host/complaint.h"

namespace host {

namespace {

const char* KeyOf(bool secure) { return secure ? SSL_PORT_KEY : PLAIN_PORT_KEY; }

int RequestedPort(const std::string& alias, bool secure, int byDefault) {
  // Not the stored count but the entries themselves, as the commands that tell the ports read them.
  const PortMap stored = ReadPort(KeyOf(secure), false);
  const auto entry = stored.find(alias);
  if (entry == stored.end()) return byDefault;
  if (entry->second >= 1 && entry->second <= 65535) return entry->second;
  Complain("The configured " + std::string(secure ? "secure " : "") + "port of " + alias + ", " +
           std::to_string(entry->second) + ", is no port number: " + std::to_string(byDefault) +
           " is used.");
  return byDefault;
}

}  // namespace

void ListeningPorts::Add(const std::string& alias, bool secure, int chosen, int byDefault,
                         CommandHandler& handler) {
  Slot slot;
  slot.state.alias = alias;
  slot.state.secure = secure;
  slot.state.requested = chosen >= 0 ? chosen : RequestedPort(alias, secure, byDefault);
  slot.byDefault = byDefault;
  slot.handler = &handler;
  slots_.push_back(std::move(slot));
}

void ListeningPorts::Open(const std::string& secureProblem) {
  for (Slot& slot : slots_) {
    if (slot.listener == 0) Open(slot, secureProblem);
  }
  Settle();
}

void ListeningPorts::Reopen(const std::string& secureProblem) {
  std::vector<Slot*> moving;
  for (Slot& slot : slots_) {
    slot.state.requested = RequestedPort(slot.state.alias, slot.state.secure, slot.byDefault);
    if (slot.state.requested != slot.state.actual)
      moving.push_back(&slot);
    else
      slot.state.problem.clear();
  }
  // Two ports that change places are in each other's way.
  std::vector<Slot> old;
  old.reserve(moving.size());
  for (const Slot* slot : moving) old.push_back(*slot);
  for (Slot* slot : moving) {
    const bool inTheWay = std::any_of(moving.begin(), moving.end(), [slot](const Slot* other) {
      return other->state.requested == slot->state.actual;
    });
    if (inTheWay) Close(*slot);
  }
  for (std::size_t i = 0; i < moving.size(); ++i) {
    Slot& slot = *moving[i];
    Slot before = slot;
    Open(slot, secureProblem);
    if (slot.listener != before.listener) {
      Close(before);
      continue;
    }
    // Rather the old port than none.
    const std::string problem = slot.state.problem;
    const int requested = slot.state.requested;
    if (slot.listener == 0 && old[i].state.actual != 0) {
      slot.state.requested = old[i].state.actual;
      Open(slot, secureProblem);
      slot.state.requested = requested;
    }
    slot.state.problem = problem;
  }
  Settle();
}

void ListeningPorts::CloseAll() {
  for (Slot& slot : slots_) Close(slot);
  Publish();
}

void ListeningPorts::Open(Slot& slot, const std::string& secureProblem) {
  PortState& state = slot.state;
  const char* scheme = state.secure ? "https" : "http";
  Server::Listening opened;
  if (state.secure && !secureProblem.empty()) {
    opened.error = "The secure port of " + state.alias + " stays closed: " + secureProblem;
  } else {
    opened = server_.Open(state.requested, state.secure, *slot.handler);
  }
  state.problem = opened.error;
  if (opened.id == 0) {
    Complain(opened.error);
    return;
  }
  slot.listener = opened.id;
  state.actual = opened.port;
  state.addresses = opened.addresses;
  for (const std::string& address : opened.addresses) {
    news_.push_back("Listening on " + std::string(scheme) + "://" + address + ":" +
                    std::to_string(opened.port));
  }
  if (!opened.note.empty()) news_.push_back(opened.note);
}

void ListeningPorts::Close(Slot& slot) {
  if (slot.listener != 0) server_.Close(slot.listener);
  slot.listener = 0;
  slot.state.actual = 0;
  slot.state.addresses.clear();
}

void ListeningPorts::Settle() {
  Publish();
  Save();
  // Told last: who reads it may rely on all that the settings and the service say of the ports.
  for (const std::string& line : news_) {
    std::printf("%s\n", line.c_str());
    LogInfo("%s", line.c_str());
  }
  std::fflush(stdout);
  news_.clear();
}

void ListeningPorts::Publish() {
  std::vector<int> plain, secure;
  std::vector<PortState> states;
  for (const Slot& slot : slots_) {
    if (slot.listener != 0) (slot.state.secure ? secure : plain).push_back(slot.state.actual);
    states.push_back(slot.state);
  }
  door_.SetOwnPorts(plain, secure);
  const std::lock_guard lock(mutex_);
  published_ = std::move(states);
}

void ListeningPorts::Save() const {
  for (const bool secure : {false, true}) {
    const PortMap stored = ReadPort(KeyOf(secure), false);
    PortMap wanted = stored;
    for (const Slot& slot : slots_) {
      if (slot.state.secure == secure && slot.listener != 0) {
        wanted[slot.state.alias] = slot.state.actual;
      }
    }
    if (wanted != stored) SavePort(wanted, KeyOf(secure));
  }
}

bool ListeningPorts::IsListening() const {
  return std::any_of(slots_.begin(), slots_.end(),
                     [](const Slot& slot) { return slot.listener != 0; });
}

std::vector<PortState> ListeningPorts::Snapshot() const {
  const std::lock_guard lock(mutex_);
  return published_;
}

}  // namespace host
