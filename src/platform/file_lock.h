// Exclusive locks on open files and folders, waited for with an end in sight.
#pragma once

#include <chrono>
#include <string>

#include "platform/descriptor.h"

/// Locks what is open as the descriptor against other descriptors of it, in this process and in
/// others, until it is closed. Returns 0; EWOULDBLOCK when somebody else held the lock until `end`
/// (anybody who may open a file may lock it, so no wait is without limit); another errno where
/// there are no locks.
int LockUntil(std::chrono::steady_clock::time_point end, int descriptor);
/// Whether a path names what is open as the descriptor. If it was removed or replaced meanwhile, a
/// lock on the descriptor keeps nobody away.
bool IsNamed(const char* path, int descriptor);

/// Opens a file that is there to be locked, made for its owner alone if it is missing and never
/// reached by a link, and locks it; the lock is that of the file which has the name in the end.
/// Returns 0 and the file, else what LockUntil does, or why it cannot be opened.
int OpenLocked(const std::string& path, std::chrono::steady_clock::time_point end,
               Descriptor* file);
