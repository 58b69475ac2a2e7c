#include "platform/thread.h"

#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "os/system.h"
#include "platform/text.h"

ThreadHandle CreateThread(void*, unsigned int, ThreadStart start, void* argument, DWORD, DWORD*,
                          ThreadHandle handleCell) {
  std::unique_ptr<pthread_t> own;
  ThreadHandle handle = handleCell;
  if (handle == nullptr) {
    own.reset(new (std::nothrow) pthread_t);
    handle = own.get();
    if (handle == nullptr) return nullptr;
  }
  if (const int error = ::pthread_create(handle, nullptr, start, argument)) {
    errno = error;
    return nullptr;
  }
  static_cast<void>(own.release());
  return handle;
}

void CloseThread(ThreadHandle handle) { delete handle; }

int WaitForThread(ThreadHandle handle, unsigned int timeoutMs) {
  if (handle == nullptr) return -1;
  if (timeoutMs != INFINITE) ::pthread_cancel(*handle);
  return ::pthread_join(*handle, nullptr);
}

BOOL TerminateThread(ThreadHandle handle, DWORD) {
  return handle != nullptr && ::pthread_cancel(*handle) == 0;
}

void endthread(unsigned int) { ::pthread_exit(nullptr); }

void ThreadExit() {}

BOOL TerminateProcess(void*, unsigned int) { return ::kill(::getpid(), SIGKILL) == 0; }

void* GetCurrentProcess() { return nullptr; }

DWORD GetCurrentProcessId() { return static_cast<DWORD>(::getpid()); }

DWORD GetCurrentThreadId() { return os::ThreadNumber(); }

BOOL GetLoginUser(char* buffer) {
  char name[1024] = {};
  if (const int error = ::getlogin_r(name, sizeof name)) {
    std::puts("getlogin_r failed.");
    errno = error;
    return 0;
  }
  std::memcpy(buffer, name, std::strlen(name) + 1);
  return 1;
}

std::uint64_t GetCurrentProcessVirtualMemSize() try {
  return os::PhysicalFootprint();
} catch (const std::bad_alloc&) {
  return 0;
}

int parseLine(char* line) {
  constexpr std::size_t kUnit = 3;  // " kB"
  const std::size_t length = std::strlen(line);
  const char* digits = line + std::strcspn(line, "0123456789");
  if (length >= kUnit) line[length - kUnit] = '\0';
  return TextToInt(digits);
}

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
