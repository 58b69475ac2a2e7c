// The head of a log line.
#pragma once

#include <cstddef>
#include <string_view>

struct LogLineHead {
  int process;
  int thread;
  std::string_view level;
  int processMode;
  int serviceMode;
};

/// Room that every head fits.
inline constexpr std::size_t LOG_PREFIX_BYTES = 512;

/// Writes "[Process:%6d Thread:%6d] [%02d/%02d/%04d %02d:%02d:%02d.%03d] [%s-%d-%d]: " with the
/// local time of the call, month first. It is written out by hand because it was most of what a
/// line cost its caller. Returns the text, which lies in `out`.
std::string_view FormatLogPrefix(char (&out)[LOG_PREFIX_BYTES], const LogLineHead& head);
