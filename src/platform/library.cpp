#include "platform/library.h"

#include <dlfcn.h>

void* LoadLibrary(const char* path) {
  if (path == nullptr) return nullptr;  // it would name the program itself
  void* library = ::dlopen(path, RTLD_NOW);
  if (library == nullptr) ::dlerror();
  return library;
}

void FreeLibrary(void* library) {
  if (library != nullptr) ::dlclose(library);
}

void* GetProcAddress(void* library, const char* symbol) {
  return library != nullptr ? ::dlsym(library, symbol) : nullptr;
}
