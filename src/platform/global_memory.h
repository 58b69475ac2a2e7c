// Movable memory, the Global family.
//
// A block is either plain (its handle is the pointer to its bytes) or movable (its handle is the
// address of a cell that holds the pointer to its bytes, so that the block can be resized under an
// unchanged handle). The layer knows every block that it gave out and takes any other pointer for
// what it is: not a block. Any thread may call; one block belongs to one thread at a time.
#pragma once

#include <cstddef>

#include "platform/win_types.h"

inline constexpr unsigned int GMEM_FIXED = 0;
inline constexpr unsigned int GMEM_MOVEABLE = 2;
inline constexpr unsigned int GMEM_ZEROINIT = 0x40;

/// A movable block with GMEM_MOVEABLE, else a plain one. Null on failure.
void* GlobalAlloc(unsigned int flags, std::size_t size);
/// A zero-filled movable block. Null on failure.
void* GlobalAlloc(std::size_t size);
/// The block's bytes: a plain block itself, a movable block's current address, which holds until
/// the block is resized. Null for null and for what is no block; of the second form also for plain
/// ones.
void* GlobalLock(void* block);
char* GlobalLock(char** handle);
/// Returns 1 always: only resizing moves a block, so there is no lock to take away.
BOOL GlobalUnlock(void* block);
/// The block's size in bytes; 0 for what is no block.
std::size_t GlobalSize(void* block);
/// Resizes a movable block under its handle and returns that handle; with GMEM_ZEROINIT new bytes
/// are zero. Null, the block unchanged, for anything else and on failure.
void* GlobalReAlloc(void* block, std::size_t size, unsigned int flags);
/// Frees a plain or movable block whose size is positive; does nothing otherwise.
void GlobalFree(void* block);
/// Frees a movable block of any size.
void GlobalFree(char** handle);
/// Returns 0.
unsigned int GlobalFlags(void* block);
