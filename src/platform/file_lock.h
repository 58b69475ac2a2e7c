// Exclusive locks on open files and folders, waited for with an end in sight.
#pragma once

#include <chrono>

/// Locks what is open as the descriptor against other descriptors of it, in this process and in
/// others, until it is closed. Returns 0; EWOULDBLOCK when somebody else held the lock until `end`
/// (anybody who may open a file may lock it, so no wait is without limit); another errno where
/// there are no locks.
int LockUntil(std::chrono::steady_clock::time_point end, int descriptor);
/// Whether a path names what is open as the descriptor. If it was removed or replaced meanwhile, a
/// lock on the descriptor keeps nobody away.
bool IsNamed(const char* path, int descriptor);
