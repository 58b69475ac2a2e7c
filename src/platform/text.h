// Small C-string helpers with Win32 names.
#pragma once

#include <cstdarg>
#include <cstddef>

/// The length of the formatted text without its NUL, negative on a format error.
int _vscprintf(const char* format, std::va_list arguments) __attribute__((format(printf, 1, 0)));
long long _atoi64(const char* text);
/// A decimal text as an int, by its leading digits: 0 for no number, saturating, errno kept.
int TextToInt(const char* text);

unsigned char* strcpy(unsigned char* target, const char* source);
std::size_t strlen(const unsigned char* text);

/// Copies at most size - 1 characters and ends the target with a NUL, always at index size - 1 too.
/// A size of 0 writes nothing. Returns the target.
char* lstrcpyn(char* target, const char* source, std::size_t size);
unsigned char* lstrcpyn(unsigned char* target, const unsigned char* source, std::size_t size);
unsigned char* lstrcpyn(unsigned char* target, const char* source, std::size_t size);

/// Removes every trailing `ch` in place.
void TrimRight(char* text, char ch);
/// Index of the last `ch`, or -1.
int ReverseFindChar(const char* text, char ch);
