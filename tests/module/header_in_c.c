/* The exported header as a host written in C sees it. */
#include "frame/qtp_module.h"

int header_compiles_as_c(void);

int header_compiles_as_c(void) {
  int (*distribute)(int, void*, int, const char*, const char*, const void*, unsigned int, int,
                    SendBackFunc, int, const char*, HostDataGetFunc, HostDataSetFunc,
                    HostDataGetFunc) = 0;
  return _Generic(&DistributeCommand, __typeof__(distribute) : 1, default : 0) &&
         _Generic(&DoAction, bool (*)(unsigned int, const char*, const char*, unsigned int) : 1,
                  default : 0);
}
