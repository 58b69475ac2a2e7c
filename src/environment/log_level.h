// Changing the log level: the one place where logging meets the writing of settings.
#pragma once

/// Stores the level as "LogLevel" and switches full logging on for 14, off for any other. Returns
/// whether full logging is now on.
bool SetLogLevel(int level);
