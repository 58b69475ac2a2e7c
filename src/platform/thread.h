// Threads, processes and shared libraries over POSIX.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "platform/win_types.h"

/// A thread: a cell that holds its pthread_t. It is the caller's own cell where CreateThread was
/// given one; otherwise it is freed with CloseThread.
using ThreadHandle = pthread_t*;
using ThreadStart = void* (*)(void*);

/// Starts a thread. Only `start`, `argument` and `handleCell` are used: the handle is kept in
/// `handleCell` when that is not null, else in a new cell. Returns null if it could not start.
ThreadHandle CreateThread(void* attributes, unsigned int stackSize, ThreadStart start,
                          void* argument, DWORD flags, DWORD* threadId, ThreadHandle handleCell);
/// Frees a cell that CreateThread allocated. It neither joins nor detaches. Null is ignored.
void CloseThread(ThreadHandle handle);
/// Joins the thread, after cancelling it when the time-out is finite. Returns the join's result (0
/// is good), -1 for a null handle.
int WaitForThread(ThreadHandle handle, unsigned int timeoutMs);
/// Cancels the thread; the code is ignored. Returns 1 when the request was taken.
BOOL TerminateThread(ThreadHandle handle, DWORD code);
/// Ends the calling thread.
[[noreturn]] void endthread(unsigned int code);
/// Does nothing.
void ThreadExit();

/// Kills the calling process with SIGKILL, whichever process is named.
BOOL TerminateProcess(void* process, unsigned int code);
/// Always null: no handle stands for the own process.
void* GetCurrentProcess();
DWORD GetCurrentProcessId();
/// A number that no other live thread of this process has, the same for the thread's whole life.
DWORD GetCurrentThreadId();

/// Stores the login name in `buffer`, which holds at least 1,024 bytes; on failure it is untouched.
/// Returns 1 or 0.
BOOL GetLoginUser(char* buffer);
/// The process's physical footprint in bytes, 0 if the system does not tell.
std::uint64_t GetCurrentProcessVirtualMemSize();
/// The number in a line such as "VmRSS:   1234 kB". The line is cut in place.
int parseLine(char* line);

/// Loads a library with all its symbols resolved. Null on failure, with no error text left behind.
/// The caller gives it back with FreeLibrary.
void* LoadLibrary(const char* path);
/// Null is ignored.
void FreeLibrary(void* library);
/// The symbol's address, null when it is missing or the library is null.
void* GetProcAddress(void* library, const char* symbol);
