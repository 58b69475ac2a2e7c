// Events, semaphores, critical sections and interlocked counters over POSIX.
//
// Events and semaphores are named POSIX semaphores waited on by polling, so a waiter reacts within
// one polling step. Every operation may be called from any thread. Failures are told by the
// result, with errno left as the failing call set it, and by a line on standard output.
#pragma once

#include <pthread.h>

#include "platform/win_types.h"

struct EventRecord;
struct SemaphoreRecord;
/// An event; owned by the caller, who gives it back with CloseEvent.
using EventHandle = EventRecord*;
/// A semaphore; owned by the caller, who gives it back with CloseSemaphore.
using SemaphoreHandle = SemaphoreRecord*;
using CriticalSection = pthread_mutex_t;

/// Creates an event. A given `name` is cut to 31 characters, or to as many as the
/// system takes, and must not exist yet; it stays in the
/// system until CloseEvent. Without a name the event is private: nothing else can open it and no
/// name outlives this call. Returns null on failure.
EventHandle CreateEvent(void* attributes, BOOL manualReset, BOOL initialState, const char* name);
/// Opens an existing named event as an auto-reset one. Returns null on failure.
EventHandle OpenEvent(DWORD access, BOOL inherit, const char* name);
/// Adds one count, so setting an event twice lets two waits through. Returns 1, or 0 on failure.
BOOL SetEvent(EventHandle event);
/// Takes all counts away. Always returns 1.
BOOL ResetEvent(EventHandle event);
/// Waits for the event; returns WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED. A finite budget is
/// counted in nanoseconds in 32 bits: 0 times out without a try, and time-outs above 4,294 ms
/// wrap. INFINITE waits without limit. A manual-reset event is set again after a good wait.
int WaitForEvent(EventHandle event, unsigned int timeoutMs);
/// Does nothing and returns 0 at once; callers must not rely on it.
int WaitForEvents(unsigned int count, EventHandle* events, BOOL waitAll, unsigned int timeoutMs);
/// Closes the event and removes its name. Null is ignored.
void CloseEvent(EventHandle event);

/// Creates a semaphore, the maximum count being ignored. Naming rules as for CreateEvent, but a
/// name may have 1,023 characters. Returns null on failure.
SemaphoreHandle CreateSemaphore(void* attributes, int initialCount, int maximumCount,
                                const char* name);
/// Adds one count whatever `releaseCount` says, and stores the informational counter's earlier
/// value through `previousCount` if given. Returns 0 only for a null handle.
BOOL ReleaseSemaphore(SemaphoreHandle semaphore, int releaseCount, int* previousCount);
/// Takes a count. Returns 0, or WAIT_FAILED on time-out (not WAIT_TIMEOUT) or for a null handle.
int WaitForSemaphone(SemaphoreHandle semaphore, unsigned int timeoutMs);
/// Closes the semaphore, which must not be null; a name given by the caller stays in the system.
void CloseSemaphore(SemaphoreHandle semaphore);

/// A plain, non-recursive mutex: a thread must not enter a section that it is in.
void InitializeCriticalSection(CriticalSection* section);
void DeleteCriticalSection(CriticalSection* section);
void EnterCriticalSection(CriticalSection* section);
void LeaveCriticalSection(CriticalSection* section);

/// Atomically adds or takes 1 and returns the value read back afterwards.
int InterlockedIncrement(volatile int* value);
int InterlockedDecrement(volatile int* value);

/// The number that keeps the built names of private objects apart from those of other services;
/// set once at start-up, before the first object is made.
void SetGlobalSeed(int seed);
int GetGlobalSeed();
