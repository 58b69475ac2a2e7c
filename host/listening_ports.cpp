#include "host/listening_ports.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "host/host_log.h"

namespace host {

void ListeningPorts::Add(const std::string& alias, bool secure, std::optional<int> chosen,
                         int byDefault, CommandHandler& handler) {
  Slot slot;
  slot.state.alias = alias;
  slot.state.secure = secure;
  slot.byDefault = byDefault;
  slot.handler = &handler;
  ReadSettings(slot, ReadPorts(), chosen);
  slots_.push_back(std::move(slot));
}

void ListeningPorts::ReadSettings(Slot& slot, const StoredPorts& stored,
                                  std::optional<int> chosen) {
  PortState& state = slot.state;
  const PortMap& map = state.secure ? stored.secure : stored.plain;
  const auto entry = map.find(state.alias);
  slot.stored = entry == map.end() ? 0 : entry->second;
  state.requested = chosen.value_or(slot.byDefault);
  if (chosen || entry == map.end()) return;
  if (slot.stored >= 1 && slot.stored <= 65535) {
    state.requested = slot.stored;
    return;
  }
  ReportError("The configured " + std::string(state.secure ? "secure " : "") + "port of " +
              state.alias + ", " + std::to_string(slot.stored) +
              ", is no port number: " + std::to_string(slot.byDefault) + " is used.");
}

void ListeningPorts::Open(const std::string& secureProblem) {
  for (Slot& slot : slots_) {
    if (slot.listener == 0) Open(slot, secureProblem);
  }
  Settle();
}

void ListeningPorts::Reopen(const std::string& secureProblem) {
  const StoredPorts stored = ReadPorts();
  std::vector<Slot*> moving;
  for (Slot& slot : slots_) {
    ReadSettings(slot, stored, std::nullopt);
    if (slot.state.requested != slot.state.actual) {
      moving.push_back(&slot);
    } else {
      slot.state.problem.clear();
      // What is stored is no port, or nothing is.
      slot.isToBeStored = slot.listener != 0 && slot.stored != slot.state.actual;
    }
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
    // Pages must not be sent to a port that this service does not have.
    slot.isToBeStored = slot.listener != 0;
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
    ReportError(opened.error);
    return;
  }
  slot.listener = opened.id;
  slot.isToBeStored = true;
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
  Store();
  // Told last: who reads it may rely on all that the settings and the service say of the ports.
  for (const std::string& line : news_) {
    std::printf("%s\n", line.c_str());
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
  const MutexLock lock(mutex_);
  published_ = std::move(states);
}

void ListeningPorts::Store() {
  std::vector<OpenedPort> opened;
  for (const Slot& slot : slots_) {
    if (!slot.isToBeStored) continue;
    opened.push_back({slot.state.alias, slot.state.secure, slot.stored, slot.state.actual});
  }
  if (opened.empty()) return;
  if (StoreOpenedPorts(opened)) {
    for (Slot& slot : slots_) slot.isToBeStored = false;
    return;
  }
  ReportError(std::string("The ports cannot be stored in QVConfiguration.ini: ") +
              std::strerror(errno) + ". GetServerInfo does not tell them.");
}

bool ListeningPorts::IsListening() const {
  return std::any_of(slots_.begin(), slots_.end(),
                     [](const Slot& slot) { return slot.listener != 0; });
}

std::vector<PortState> ListeningPorts::Snapshot() const {
  const MutexLock lock(mutex_);
  return published_;
}

}  // namespace host
