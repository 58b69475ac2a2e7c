#include "host/run_file.h"

#include <unistd.h>

#include <cerrno>

#include "environment/logging.h"
#include "platform/file_lock.h"

namespace host {

bool RunFile::Take(const std::string& file, std::string& error) {
  // An updater that only looks whether a service runs holds it for a moment.
  constexpr std::chrono::seconds kPatience(1);
  const int problem = OpenLocked(file, std::chrono::steady_clock::now() + kPatience, &file_);
  if (problem == 0) return true;
  if (problem != EWOULDBLOCK) {
    LogErr("The run file %s cannot be locked: updates will not find this service.", file.c_str());
    return true;
  }
  const auto other = updater::ReadRunRecord(file);
  error = "The service runs already in this folder" +
          (other ? ", as process " + std::to_string(other->pid) : std::string()) +
          ", or an update is just replacing it. Two would spoil each other's settings.";
  return false;
}

void RunFile::Write(const updater::RunRecord& record) const {
  if (!file_) return;
  // In place: the lock belongs to this very file. Who reads half of it sees no record and tries
  // again.
  const std::string text = RunRecordText(record);
  if (::pwrite(file_.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
      ::ftruncate(file_.get(), static_cast<off_t>(text.size())) != 0) {
    LogErr("The run file cannot be written.");
  }
}

}  // namespace host
