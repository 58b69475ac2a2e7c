#include "environment/log_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <system_error>

#include "util/cutil.h"

namespace {

constexpr std::size_t kMostPendingBytes = 64 * 1024 * 1024;

// The writer rests after a batch before it takes the next: waking it costs a caller more than all
// the rest of a line, and in a burst one batch a millisecond is enough.
constexpr std::chrono::milliseconds kRest{1};

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

bool LogWriterThread::Start(std::string_view filePath, std::string& text) {
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
    wake_.wait_for(lock, kRest, [this] { return stopping_; });
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
  GiveBack(text_);
  GiveBack(filePath_);
}

bool CAsyncLogging::Log(std::initializer_list<std::string_view> entry, std::string_view filePath) {
  const WriteHold hold(lock_);
  if (closed_ || pending_.size() > kMostPendingBytes) return false;
  for (const std::string_view piece : entry) pending_ += piece;
  lastFile_ = filePath;
  if (!writer_.Busy()) writer_.Start(filePath, pending_);
  return true;
}

void CAsyncLogging::Close() {
  const WriteHold hold(lock_);
  closed_ = true;
  writer_.Join();
  if (!pending_.empty()) WriteLogAsync(lastFile_, pending_);
  GiveBack(pending_);
  GiveBack(lastFile_);
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
