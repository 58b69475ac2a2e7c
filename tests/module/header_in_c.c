/* The exported header as a host written in C sees it: it compiles. */
#include "frame/qtp_module.h"
