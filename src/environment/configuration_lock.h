// Moved; kept for a moment until all rooms have followed.
#pragma once
#include "environment/configuration.h"
