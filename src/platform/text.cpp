#include "platform/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int _vscprintf(const char* format, std::va_list arguments) {
  std::va_list copy;
  va_copy(copy, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  return length;
}

int TextToInt(const char* text) {
  const int saved = errno;
  const long number = std::strtol(text, nullptr, 10);
  errno = saved;
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

long long _atoi64(const char* text) { return std::strtoll(text, nullptr, 10); }

unsigned char* strcpy(unsigned char* target, const char* source) {
  std::memcpy(target, source, std::strlen(source) + 1);
  return target;
}

std::size_t strlen(const unsigned char* text) {
  return std::strlen(reinterpret_cast<const char*>(text));
}

char* lstrcpyn(char* target, const char* source, std::size_t size) {
  if (size == 0) return target;
  const std::size_t length = ::strnlen(source, size - 1);
  std::memmove(target, source, length);
  target[length] = '\0';
  target[size - 1] = '\0';
  return target;
}

unsigned char* lstrcpyn(unsigned char* target, const char* source, std::size_t size) {
  lstrcpyn(reinterpret_cast<char*>(target), source, size);
  return target;
}

unsigned char* lstrcpyn(unsigned char* target, const unsigned char* source, std::size_t size) {
  return lstrcpyn(target, reinterpret_cast<const char*>(source), size);
}

void TrimRight(char* text, char ch) {
  if (ch == '\0') return;  // no text ends with a character that ends every text
  std::size_t length = std::strlen(text);
  while (length > 0 && text[length - 1] == ch) text[--length] = '\0';
}

int ReverseFindChar(const char* text, char ch) {
  const std::size_t length = std::strlen(text);
  for (std::size_t i = length; i > 0; --i) {
    if (text[i - 1] == ch) return static_cast<int>(i - 1);
  }
  return -1;
}
