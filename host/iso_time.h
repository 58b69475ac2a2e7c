// Moved: host/host_log.h.
#pragma once

#include "host/host_log.h"
