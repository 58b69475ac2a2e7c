#include "environment/async_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

constexpr std::size_t kMostPendingBytes = 64 * 1024 * 1024;

}  // namespace

void WriteLogAsync(const std::string& filePath, std::string_view text) {
  const int file = ::open(filePath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0) return;
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  ::close(file);
}

bool LogWriterThread::Start(const std::string& filePath, std::string& text) {
  if (!thread_.joinable()) {
    try {
      thread_ = std::thread(&LogWriterThread::Run, this);
    } catch (const std::system_error&) {
      return false;
    }
  }
  {
    const std::lock_guard lock(mutex_);
    filePath_ = filePath;
    text_.swap(text);
    busy_.store(true, std::memory_order_release);
  }
  wake_.notify_one();
  text.clear();
  return true;
}

void LogWriterThread::Run() {
  std::unique_lock lock(mutex_);
  while (true) {
    wake_.wait(lock, [this] { return stopping_ || Busy(); });
    if (!Busy()) return;
    WriteLogAsync(filePath_, text_);
    busy_.store(false, std::memory_order_release);
  }
}

void LogWriterThread::Join() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  thread_.join();
  text_ = {};
  filePath_ = {};
}

bool CAsyncLogging::Log(std::string_view entry, const std::string& filePath) {
  const WriteHold hold(lock_);
  if (closed_ || pending_.size() + entry.size() > kMostPendingBytes) return false;
  pending_ += entry;
  if (filePath != lastFile_) lastFile_ = filePath;
  if (!writer_.Busy()) writer_.Start(filePath, pending_);
  return true;
}

void CAsyncLogging::Close() {
  const WriteHold hold(lock_);
  closed_ = true;
  writer_.Join();
  if (!pending_.empty()) WriteLogAsync(lastFile_, pending_);
  pending_ = {};
  lastFile_ = {};
}
