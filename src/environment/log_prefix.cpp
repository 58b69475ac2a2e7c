#include "environment/log_prefix.h"

#include <algorithm>
#include <charconv>

#include "util/cutil.h"

namespace {

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
