// Moved: see service_info.h.
#pragma once

#include "discovery/service_info.h"
