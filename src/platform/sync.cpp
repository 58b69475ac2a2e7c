#include "platform/sync.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <new>

#include "os/system.h"
#include "platform/diagnostics.h"
#include "platform/system_time.h"
#include "platform/text.h"

namespace {

/// Names given by callers are cut to fit; built ones leave one byte more unused.
constexpr std::size_t kEventNameBytes = 32;
constexpr std::size_t kSemaphoreNameBytes = 1024;

}  // namespace

/// Records are made before their semaphores: without memory for one there is nothing to take back.
struct EventRecord {
  sem_t* semaphore;
  bool manualReset;
  char name[kEventNameBytes];  ///< "" when the system has no such name (any more).
};

struct SemaphoreRecord {
  sem_t* semaphore;
  std::atomic<int> counter;
};

namespace {

constexpr std::uint32_t kNanosecondsPerMs = 1'000'000;

std::atomic<int> globalSeed{0};
std::atomic<unsigned int> eventCounter{0};
std::atomic<unsigned int> semaphoreCounter{0};

sem_t* Create(const char* name, int count) {
  return ::sem_open(name, O_CREAT | O_EXCL, 0666, static_cast<unsigned int>(count));
}

/// Cuts a name to what a record and the system have room for.
const char* CopyName(const char* name, EventRecord* event) {
  return lstrcpyn(event->name, name, std::min(sizeof event->name, os::LongestSemaphoreName() + 1));
}

/// Creates a semaphore that nobody else can open. Another copy of this layer in the process counts
/// by itself and may hold a built name for a moment, so a taken name means trying the next one.
sem_t* CreatePrivate(const char* prefix, std::atomic<unsigned int>& counter, int count, char* name,
                     std::size_t nameBytes) {
  for (;;) {
    std::snprintf(name, nameBytes - 1, "%s%u_%u_%d", prefix, static_cast<unsigned int>(::getpid()),
                  ++counter, globalSeed.load());
    sem_t* semaphore = Create(name, count);
    if (semaphore != SEM_FAILED) ::sem_unlink(name);
    if (semaphore != SEM_FAILED || errno != EEXIST) return semaphore;
  }
}

void ReportErrno(const char* operation) { PrintFailure("%s failed %d\n", operation, errno); }

bool Post(sem_t* semaphore, const char* operation) {
  if (::sem_post(semaphore) == 0) return true;
  ReportErrno(operation);
  return false;
}

/// The thread library returns its errors instead of leaving them in errno.
void Check(int error, const char* operation) {
  if (error == 0) return;
  errno = error;
  ReportErrno(operation);
}

}  // namespace

EventHandle CreateEvent(void*, BOOL manualReset, BOOL initialState, const char* name) {
  std::unique_ptr<EventRecord> event(new (std::nothrow)
                                         EventRecord{SEM_FAILED, manualReset != 0, {}});
  if (event == nullptr) {
    ReportErrno("CreateEvent");
    return nullptr;
  }
  if (name != nullptr) {
    event->semaphore = Create(CopyName(name, event.get()), initialState);
  } else {
    event->semaphore =
        CreatePrivate("ce0", eventCounter, initialState, event->name, sizeof event->name);
  }
  if (event->semaphore == SEM_FAILED) {
    PrintFailure("CreateEvent sem_open failed %d name %s\n", errno, event->name);
    return nullptr;
  }
  if (name == nullptr) event->name[0] = '\0';
  return event.release();
}

EventHandle OpenEvent(DWORD, BOOL, const char* name) {
  std::unique_ptr<EventRecord> event(new (std::nothrow) EventRecord{SEM_FAILED, false, {}});
  if (event == nullptr) return nullptr;
  event->semaphore = ::sem_open(CopyName(name != nullptr ? name : "", event.get()), 0);
  if (event->semaphore == SEM_FAILED) {
    ReportErrno("OpenEvent sem_open");
    return nullptr;
  }
  return event.release();
}

BOOL SetEvent(EventHandle event) {
  return event != nullptr && Post(event->semaphore, "SetEvent sem_post");
}

BOOL ResetEvent(EventHandle event) {
  if (event == nullptr) return 1;
  for (;;) {
    if (::sem_trywait(event->semaphore) == 0) continue;
    if (errno == EAGAIN) return 1;
    ReportErrno("ResetEvent sem_trywait");
    Sleep(50);
  }
}

int WaitForEvent(EventHandle event, unsigned int timeoutMs) {
  if (event == nullptr) return WAIT_FAILED;
  const bool forever = timeoutMs == INFINITE;
  const std::uint32_t budget = timeoutMs * kNanosecondsPerMs;
  const std::uint32_t step = forever ? 2 * kNanosecondsPerMs : kNanosecondsPerMs;
  const std::timespec pause{0, static_cast<long>(step)};
  // The elapsed time is wider than the budget, or it could wrap below it and never end the wait.
  for (std::uint64_t elapsed = 0; forever || elapsed < budget; elapsed += step) {
    if (::sem_trywait(event->semaphore) == 0) {
      if (event->manualReset) Post(event->semaphore, "SetEvent sem_post");
      return WAIT_OBJECT_0;
    }
    if (errno != EAGAIN) {
      PrintFailure("[%d]WaitForEvent sem_trywait failed %d\n", static_cast<int>(::getpid()), errno);
      return WAIT_FAILED;
    }
    ::nanosleep(&pause, nullptr);
  }
  return WAIT_TIMEOUT;
}

int WaitForEvents(unsigned int, EventHandle*, BOOL, unsigned int) { return 0; }

void CloseEvent(EventHandle event) {
  if (event == nullptr) return;
  ::sem_close(event->semaphore);
  if (event->name[0] != '\0') ::sem_unlink(event->name);
  delete event;
}

SemaphoreHandle CreateSemaphore(void*, int initialCount, int, const char* name) {
  std::unique_ptr<SemaphoreRecord> semaphore(new (std::nothrow) SemaphoreRecord{SEM_FAILED, 0});
  if (semaphore != nullptr) {
    char used[kSemaphoreNameBytes];
    semaphore->semaphore =
        name != nullptr ? Create(lstrcpyn(used, name, sizeof used), initialCount)
                        : CreatePrivate("Sem", semaphoreCounter, initialCount, used, sizeof used);
  }
  if (semaphore == nullptr || semaphore->semaphore == SEM_FAILED) {
    ReportErrno("sem_open");
    return nullptr;
  }
  return semaphore.release();
}

BOOL ReleaseSemaphore(SemaphoreHandle semaphore, int, int* previousCount) {
  if (semaphore == nullptr) return 0;
  if (Post(semaphore->semaphore, "sem_post")) {
    const int previous = semaphore->counter.fetch_add(1);
    if (previousCount != nullptr) *previousCount = previous;
  }
  return 1;
}

int WaitForSemaphone(SemaphoreHandle semaphore, unsigned int timeoutMs) {
  if (semaphore == nullptr) return WAIT_FAILED;
  if (timeoutMs == INFINITE) {
    int result = 0;
    // A signal that arrives is no failure of the wait, and no count was taken.
    while ((result = ::sem_wait(semaphore->semaphore)) != 0 && errno == EINTR) {
    }
    if (result == 0) {
      --semaphore->counter;
    } else {
      ReportErrno("sem_wait");
    }
    return 0;
  }
  std::uint64_t step = timeoutMs / 8 > 0 ? timeoutMs / 8 : 1;
  std::uint64_t elapsed = 0;
  do {
    if (::sem_trywait(semaphore->semaphore) == 0) {
      --semaphore->counter;
      return 0;
    }
    elapsed += step;
    if (elapsed > timeoutMs) {
      step -= elapsed - timeoutMs;
      elapsed = timeoutMs;
    }
    Sleep(static_cast<DWORD>(step));
  } while (elapsed < timeoutMs);
  return WAIT_FAILED;
}

void CloseSemaphore(SemaphoreHandle semaphore) {
  ::sem_close(semaphore->semaphore);
  delete semaphore;
}

void InitializeCriticalSection(CriticalSection* section) {
  Check(::pthread_mutex_init(section, nullptr), "pthread_mutex_init");
}

void DeleteCriticalSection(CriticalSection* section) {
  Check(::pthread_mutex_destroy(section), "pthread_mutex_destroy");
}

void EnterCriticalSection(CriticalSection* section) {
  Check(::pthread_mutex_lock(section), "pthread_mutex_lock");
}

void LeaveCriticalSection(CriticalSection* section) {
  Check(::pthread_mutex_unlock(section), "pthread_mutex_unlock");
}

int InterlockedIncrement(volatile int* value) {
  __atomic_fetch_add(value, 1, __ATOMIC_SEQ_CST);
  return __atomic_load_n(value, __ATOMIC_SEQ_CST);
}

int InterlockedDecrement(volatile int* value) {
  __atomic_fetch_sub(value, 1, __ATOMIC_SEQ_CST);
  return __atomic_load_n(value, __ATOMIC_SEQ_CST);
}

void SetGlobalSeed(int seed) { globalSeed = seed; }

int GetGlobalSeed() { return globalSeed; }
