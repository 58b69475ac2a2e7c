// Moved; kept for a moment until all rooms have followed.
#pragma once
#include "command/command_text.h"
