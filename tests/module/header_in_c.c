/* The exported header as a host written in C sees it: it compiles. */
#include "marvique/module.h"
