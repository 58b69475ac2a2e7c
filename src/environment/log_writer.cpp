#include "environment/log_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <system_error>

#include "environment/configuration.h"
#include "os/file.h"
#include "platform/text.h"
#include "util/cutil.h"

namespace {

constexpr int kOldLogFiles = 3;

constexpr std::size_t kMostPendingBytes = 64 * 1024 * 1024;

// Lines come in bursts, and waking the writer costs a caller more than all the rest of a line. So
// after a write the writer stays awake for a while and looks again by itself.
constexpr std::chrono::microseconds kPause{100};
constexpr int kPausesBeforeRest = 10;

// Memory that the texts keep for the next batch; what a burst needed beyond it is given back.
constexpr std::size_t kMostKeptBytes = 1024 * 1024;

// Empties a text together with its memory: the log itself is never destroyed.
void GiveBack(std::string& text) { std::string().swap(text); }

// Appends to a buffer that the caller knows to be large enough: every number has at most 11
// characters, every word comes from this program.
class Writer {
 public:
  explicit Writer(char* at) : at_(at) {}

  Writer& Text(std::string_view text) {
    at_ = std::copy(text.begin(), text.end(), at_);
    return *this;
  }
  Writer& Number(int value, int width = 0, char fill = '0') {
    char digits[12];
    const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    for (auto length = end - digits; length < width; ++length) *at_++ = fill;
    return Text({digits, end});
  }
  const char* end() const { return at_; }

 private:
  char* at_;
};

}  // namespace

namespace {

Descriptor OpenLog(const std::string& path) {
  return Descriptor(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
}

off_t MostLogBytes() {
  constexpr int kMiB = 1024 * 1024, kMost = 1024, kDefault = 10;
  const std::string stored = GetConfigurationfromInitFile("LogMaxMiB", "", DEFAULT_SECTION);
  const int number = TextToInt(stored.c_str());
  return static_cast<off_t>(number < 1 || number > kMost ? kDefault : number) * kMiB;
}

off_t SizeOf(const Descriptor& file) {
  struct stat status {};
  return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

/// Whether the path still names this file. Another process may have begun a new one.
bool IsAt(const std::string& path, const Descriptor& file) {
  struct stat named {
  }, open{};
  return ::stat(path.c_str(), &named) == 0 && ::fstat(file.get(), &open) == 0 &&
         named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

/// Names a full file and its predecessors one further, the last of which goes. Several processes
/// may write one log: the one that has the lock does it, the others write on.
void Rotate(const std::string& path, const Descriptor& file) {
  if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 || !IsAt(path, file)) return;
  const auto numbered = [&path](int number) { return path + "." + std::to_string(number); };
  for (int number = kOldLogFiles; number > 1; --number) {
    ::rename(numbered(number - 1).c_str(), numbered(number).c_str());
  }
  ::rename(path.c_str(), numbered(1).c_str());
}

}  // namespace

void WriteLogAsync(const std::string& filePath, std::string_view text) {
  Descriptor file = OpenLog(filePath);
  const off_t size = file ? SizeOf(file) : 0;
  if (size > 0 && size + static_cast<off_t>(text.size()) > MostLogBytes()) {
    Rotate(filePath, file);
    file = OpenLog(filePath);
  }
  if (file) WriteAll(file.get(), text);
}

bool CAsyncLogging::Log(std::initializer_list<std::string_view> entry, std::string_view filePath) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_ || pending_.size() > kMostPendingBytes) return false;
    if (file_ != filePath) file_ = filePath;
    std::size_t size = pending_.size();
    for (const std::string_view piece : entry) size += piece.size();
    if (size > pending_.capacity()) pending_.reserve(std::max(size, 2 * pending_.capacity()));
    for (const std::string_view piece : entry) pending_ += piece;
    if (awake_ || !EnsureThread()) return true;
    awake_ = true;
  }
  wake_.notify_one();
  return true;
}

// Without a thread to be had the lines wait for a later one, or for Close.
bool CAsyncLogging::EnsureThread() {
  if (thread_.joinable()) return true;
  try {
    thread_ = std::thread(&CAsyncLogging::Run, this);
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

void CAsyncLogging::Run() {
  std::string batch, file;
  int pauses = 0;
  std::unique_lock lock(mutex_);
  while (!closed_ || !pending_.empty()) {
    if (!pending_.empty()) {
      batch.swap(pending_);
      file.swap(file_);
      lock.unlock();
      WriteLogAsync(file, batch);
      batch.clear();
      if (batch.capacity() > kMostKeptBytes) GiveBack(batch);
      lock.lock();
      pauses = 0;
    } else if (pauses++ < kPausesBeforeRest) {
      wake_.wait_for(lock, kPause, [this] { return closed_; });
    } else {
      awake_ = false;
      wake_.wait(lock, [this] { return awake_ || closed_; });
      pauses = 0;
    }
  }
}

void CAsyncLogging::Close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
  if (!pending_.empty()) WriteLogAsync(file_, pending_);
  GiveBack(pending_);
  GiveBack(file_);
}

std::string_view FormatLogPrefix(char (&out)[LOG_PREFIX_BYTES], const LogLineHead& head) {
  const _SYSTEMTIME now = CUtil::GetLocalTime();
  Writer writer(out);
  writer.Text("[Process:").Number(head.process, 6, ' ');
  writer.Text(" Thread:").Number(head.thread, 6, ' ');
  writer.Text("] [").Number(now.wMonth, 2).Text("/").Number(now.wDay, 2);
  writer.Text("/").Number(now.wYear, 4);
  writer.Text(" ").Number(now.wHour, 2).Text(":").Number(now.wMinute, 2);
  writer.Text(":").Number(now.wSecond, 2).Text(".").Number(now.wMilliseconds, 3);
  writer.Text("] [").Text(head.level).Text("-").Number(head.processMode);
  writer.Text("-").Number(head.serviceMode).Text("]: ");
  return {out, writer.end()};
}
