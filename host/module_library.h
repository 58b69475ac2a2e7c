// Moved: host/modules.h.
#pragma once

#include "host/modules.h"
