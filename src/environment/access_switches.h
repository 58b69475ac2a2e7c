// The access switches: read once at start-up and then held in memory, so that what a page may do
// does not change under it. Any thread may call.
#pragma once

/// Takes all eight from the configuration file; part of start-up.
void ReadAccessSwitches();

bool GetEnableScannerAccess();
bool GetEnableFileAccess();
bool GetEnableWebcamAccess();
bool GetEnableScannerAccessAuth();
bool GetEnableFileAccessAuth();
bool GetEnableWebcamAccessAuth();
bool GetEnableCORSAll();
bool GetEnableMultipleUserEnhancedMode();

/// Store the switch for the next start; the value in memory stays as it is.
void SetEnableScannerAccess(bool enable);
void SetEnableFileAccess(bool enable);
void SetEnableWebcamAccess(bool enable);
