// Moved; kept for a moment until all rooms have followed.
#pragma once
#include "command/http_param_request.h"
