#include "frame/json_cost.h"

#include <algorithm>

namespace {

// The place behind a string whose opening quote stands before `at`.
std::size_t EndOfString(std::string_view text, std::size_t at) {
  while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
  return std::min(at + 1, text.size());
}

// The place behind a comment that begins at `at`, or behind the slash if none does.
std::size_t EndOfComment(std::string_view text, std::size_t at) {
  const char kind = at + 1 < text.size() ? text[at + 1] : '\0';
  if (kind != '*' && kind != '/') return at + 1;
  // The parser ends a line at either of the two characters.
  const auto end = kind == '*' ? text.find("*/", at + 2) : text.find_first_of("\r\n", at + 2);
  if (end == std::string_view::npos) return text.size();
  return end + (kind == '*' ? 2 : 1);
}

}  // namespace

bool IsAffordableJson(std::string_view text) {
  std::size_t cost = 0;
  std::size_t depth = 1;
  for (std::size_t at = 0; at < text.size();) {
    switch (text[at]) {
      case '"':
        at = EndOfString(text, at + 1);
        continue;
      case '/':
        at = EndOfComment(text, at);
        continue;
      case '[':
      case '{':
        cost += ++depth;
        break;
      case ']':
      case '}':
        depth -= depth > 1 ? 1 : 0;
        break;
      case ',':
        cost += depth;
        break;
      default:
        break;
    }
    if (cost > MOST_JSON_COST) return false;
    ++at;
  }
  return true;
}
