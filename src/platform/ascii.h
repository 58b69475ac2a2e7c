// Moved; kept for a moment until all rooms have followed.
#pragma once
#include "os/text.h"
