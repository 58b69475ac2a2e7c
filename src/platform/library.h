// Shared libraries.
#pragma once

/// Loads a library with all its symbols resolved. Null on failure, with no error text left behind.
/// The caller gives it back with FreeLibrary.
void* LoadLibrary(const char* path);
/// Null is ignored.
void FreeLibrary(void* library);
/// The symbol's address, null when it is missing or the library is null.
void* GetProcAddress(void* library, const char* symbol);
