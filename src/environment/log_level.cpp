#include "environment/log_level.h"

#include "environment/configuration.h"
#include "environment/logging.h"

bool SetLogLevel(int level) {
  SetConfigurationToInitFile("LogLevel", level, DEFAULT_SECTION);
  SetFullLogging(level == LOG_LEVEL_FULL);
  return GetFullLogging();
}
