/* The exported header as a host written in C sees it: every function has the type that such a host
 * relies on. */
#include "frame/qtp_module.h"

int header_compiles_as_c(void);

int header_compiles_as_c(void) {
  bool (*do_action)(unsigned int, const char*, const char*, unsigned int) = 0;
  int (*distribute)(int, void*, int, const char*, const char*, const void*, unsigned int, int,
                    SendBackFunc, int, const char*, HostDataGetFunc, HostDataSetFunc,
                    HostDataGetFunc) = 0;
  int (*get_ports)(unsigned char, unsigned int*) = 0;
  int (*get_image)(const char*, void*, unsigned int*) = 0;
  int (*set_image)(const char*, const void*, unsigned int) = 0;
  int (*reserved)(const char*, const char*, const void*) = 0;
  return _Generic(&DoAction, __typeof__(do_action) : 1, default : 0) &&
         _Generic(&DistributeCommand, __typeof__(distribute) : 1, default : 0) &&
         _Generic(&GetPorts, __typeof__(get_ports) : 1, default : 0) &&
         _Generic(&GetImage, __typeof__(get_image) : 1, default : 0) &&
         _Generic(&SetImage, __typeof__(set_image) : 1, default : 0) &&
         _Generic(&Reserved, __typeof__(reserved) : 1, default : 0) &&
         _Generic(&GetAlias, int (*)(unsigned int*) : 1, default : 0) &&
         _Generic(&GetVersionDesc, int (*)(char*) : 1, default : 0) &&
         _Generic(&GetWaitTimeout, int (*)(void) : 1, default : 0);
}
