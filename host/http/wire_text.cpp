#include "host/http/wire_text.h"

#include <cstddef>

namespace host {

namespace {

/// Length of the well-formed sequence at the text's start, 0 when there is none: no overlong forms,
/// no surrogates, nothing beyond U+10FFFF.
std::size_t SequenceLength(std::string_view text) {
  const auto byte = [text](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  const auto follows = [&byte](std::size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
    return byte(i) >= low && byte(i) <= high;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return follows(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const unsigned low = first == 0xE0 ? 0xA0 : 0x80, high = first == 0xED ? 0x9F : 0xBF;
    return follows(1, low, high) && follows(2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const unsigned low = first == 0xF0 ? 0x90 : 0x80, high = first == 0xF4 ? 0x8F : 0xBF;
    return follows(1, low, high) && follows(2) && follows(3) ? 4 : 0;
  }
  return 0;
}

std::size_t ValidPrefix(std::string_view text, std::size_t from) {
  while (from < text.size()) {
    const std::size_t length = SequenceLength(text.substr(from));
    if (length == 0) break;
    from += length;
  }
  return from;
}

bool IsTokenCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.';
}

}  // namespace

int BrowserTypeOf(std::string_view userAgent) {
  const auto names = [userAgent](std::string_view name) {
    return userAgent.find(name) != userAgent.npos;
  };
  // The order matters: Edge also calls itself Chrome, and both also call themselves Safari.
  if (userAgent.empty()) return 0;
  if (names("Edg/") || names("Edge/")) return 4;
  if (names("Chrome/") || names("Chromium/") || names("CriOS/")) return 1;
  if (names("Firefox/") || names("FxiOS/")) return 2;
  if (names("Safari/")) return 3;
  return 5;
}

std::string ToValidUtf8(std::string text) {
  std::size_t valid = ValidPrefix(text, 0);
  if (valid == text.size()) return text;
  std::string repaired;
  repaired.reserve(text.size() + 16);
  for (std::size_t begin = 0; begin < text.size();) {
    repaired.append(text, begin, valid - begin);
    if (valid < text.size()) repaired += "\xEF\xBF\xBD";
    begin = valid + 1;
    valid = ValidPrefix(text, begin);
  }
  return repaired;
}

bool IsTokenList(std::string_view text) {
  bool any = false;
  for (const char c : text) {
    if (IsTokenCharacter(c))
      any = true;
    else if (c != ',' && c != ' ')
      return false;
  }
  return any;
}

const char* MediaTypeOf(std::string_view reply) {
  const bool json = !reply.empty() && (reply.front() == '{' || reply.front() == '[');
  return json ? "application/json; charset=utf-8" : "text/plain; charset=utf-8";
}

}  // namespace host
