#include "environment/configuration_lock.h"

CReaderWriterLock& ConfigurationLock() {
  static CReaderWriterLock lock;
  return lock;
}
