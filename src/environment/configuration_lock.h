// The one lock that orders all reads (shared) and writes (exclusive) of the INI files within this
// process. It is re-entrant, so a batch may hold it around the single reads and writes. It is never
// taken while the log's own lock is held, and nobody calls the host while holding it.
#pragma once

#include "util/reader_writer_lock.h"

CReaderWriterLock& ConfigurationLock();
