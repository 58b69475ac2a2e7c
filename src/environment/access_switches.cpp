#include "environment/access_switches.h"

#include <atomic>

#include "environment/configuration.h"

namespace {

struct Switch {
  const char* key;
  const char* defaultInFile;
  std::atomic<bool> on;  // until start-up reads the file: the value given here

  void Read() { on = GetConfigurationfromInitFile(key, defaultInFile); }
  void StoreForNextStart(bool enable) const {
    SetConfigurationToInitFile(key, BoolToText(enable), DEFAULT_SECTION);
  }
};

constinit Switch g_scannerAccess{"EnableScannerAccess", "TRUE", true};
constinit Switch g_fileAccess{"EnableFileAccess", "TRUE", true};
constinit Switch g_webcamAccess{"EnableWebcamAccess", "TRUE", true};
constinit Switch g_scannerAccessAuth{"EnableScannerAccessAuth", "FALSE", false};
constinit Switch g_fileAccessAuth{"EnableFileAccessAuth", "FALSE", false};
constinit Switch g_webcamAccessAuth{"EnableWebcamAccessAuth", "FALSE", false};
constinit Switch g_corsAll{"EnableCORSAll", "FALSE", true};
constinit Switch g_enhancedMode{"EnableEnhancedMode", "FALSE", false};

}  // namespace

void ReadAccessSwitches() {
  for (Switch* each : {&g_scannerAccess, &g_fileAccess, &g_webcamAccess, &g_scannerAccessAuth,
                       &g_fileAccessAuth, &g_webcamAccessAuth, &g_corsAll, &g_enhancedMode}) {
    each->Read();
  }
}

bool GetEnableScannerAccess() { return g_scannerAccess.on; }
bool GetEnableFileAccess() { return g_fileAccess.on; }
bool GetEnableWebcamAccess() { return g_webcamAccess.on; }
bool GetEnableScannerAccessAuth() { return g_scannerAccessAuth.on; }
bool GetEnableFileAccessAuth() { return g_fileAccessAuth.on; }
bool GetEnableWebcamAccessAuth() { return g_webcamAccessAuth.on; }
bool GetEnableCORSAll() { return g_corsAll.on; }
bool GetEnableMultipleUserEnhancedMode() { return g_enhancedMode.on; }

void SetEnableScannerAccess(bool enable) { g_scannerAccess.StoreForNextStart(enable); }
void SetEnableFileAccess(bool enable) { g_fileAccess.StoreForNextStart(enable); }
void SetEnableWebcamAccess(bool enable) { g_webcamAccess.StoreForNextStart(enable); }
