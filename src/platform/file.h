// Files: stdio streams behind Win32-style calls, and operations on whole files.
//
// Descriptors are close-on-exec, and opening a folder or a pipe as a file fails at once. Two result
// conventions live side by side here and are kept: ReadFileEx and the three-argument ReadFile
// return 0 for good, everything else returns 1 for good.
#pragma once

#include <cstdio>
#include <string>

#include "platform/win_types.h"

/// An open file; owned by the caller, who gives it back with CloseFile.
using FileHandle = std::FILE*;

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 1;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 16;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 128;

/// Opens a file: disposition OPEN_EXISTING needs it to exist, OPEN_ALWAYS keeps its content, any
/// other creates or truncates it, also for reading only. The stream starts at the beginning, for
/// reading and with GENERIC_WRITE for writing. Returns null on failure.
FileHandle CreateFile(const char* name, DWORD access, DWORD share, void* security,
                      DWORD disposition, DWORD flags, void* templateFile);
FileHandle QVCreateFile(const char* name, DWORD access, DWORD share, void* security,
                        DWORD disposition, DWORD flags, void* templateFile);
/// Returns 1, also for null, and 0 when closing failed (unwritten data may be lost).
BOOL CloseFile(FileHandle file);
BOOL QVCloseFile(FileHandle file);

BOOL ReadFile(FileHandle file, void* buffer, DWORD count, DWORD* read, void* overlapped);
/// Returns 1 only if all bytes were written.
BOOL WriteFile(FileHandle file, const void* buffer, DWORD count, DWORD* written, void* overlapped);
/// Moves the position; `whence` is that of fseek and the high part is ignored. Returns the new
/// position, cut to 32 bits.
DWORD SetFilePointer(FileHandle file, int offset, int* high, int whence);
/// The size, cut to 32 bits; the position is kept and the high part untouched. 0 for null,
/// 0xFFFFFFFF for what has no size.
DWORD GetFileSize(FileHandle file, DWORD* high);

/// Reads a whole file, or its first `maxBytes`, from its start into one block with a NUL behind it.
/// Returns 0 when good; the caller frees the block with free().
int ReadFileEx(FileHandle file, DWORD maxBytes, unsigned char** buffer, DWORD* length);
int ReadFile(FileHandle file, unsigned char** buffer, DWORD* length);
/// The same by name. Returns 1 when good, 0 on failure (buffer null, length 0).
BOOL ReadFileByName(const char* path, unsigned char** buffer, DWORD* length);
BOOL ReadFileByNameEx(const char* path, DWORD maxBytes, unsigned char** buffer, DWORD* length);

/// Replaces `target` by a copy of `source` in one step: a program that has the old target open or
/// mapped keeps it whole. The copy reaches the disk when the system writes it there. A target in a
/// folder that may not be written is written over instead; when that fails half-way, as on a full
/// disk, a part of the copy stays: the old content is gone. `failIfExists` is ignored. Returns 1; 0
/// when the source is empty or the target cannot be written. A source that cannot be read counts as
/// nothing to copy: 1.
BOOL CopyFile(const char* source, const char* target, BOOL failIfExists);
BOOL DeleteFile(const char* path);
/// -1 for nothing there or an empty path, FILE_ATTRIBUTE_DIRECTORY for a folder, else 0.
int GetFileAttributes(const char* path);
/// Does nothing; returns 1.
BOOL SetFileAttributes(const char* path, DWORD attributes);
/// Fills only `written`: the modification time's seconds (low) and nanoseconds (high), both cut to
/// 32 bits; nothing is filled when the path cannot be seen. Returns 1 always.
BOOL GetFileTime(const char* path, _FILETIME* created, _FILETIME* accessed, _FILETIME* written);
/// folder + fileName when that file can be opened for appending, which creates it. Otherwise a name
/// with a random number in parentheses before its extension, if it has one; "" without memory.
std::string MakeSureFileCanBeWritten(const char* folder, const char* fileName);

/// Makes one folder; its parent must exist. Returns 1, or 0 on failure and when the path exists.
BOOL CreateDirectory(const char* path, void* security);
/// Removes a folder with its content, but ends early: it stops with 1 after the first subfolder
/// whose own removal gave 1 (the subfolder is gone, or its removal ended early in the same way),
/// and with 0 after a file that could not be removed. Callers that need the whole tree gone call
/// again or use RemoveUndeletedDir. Of a link given as the path the target is emptied and the link
/// stays: 0. Returns 1 or 0.
BOOL RemoveDir(const char* path);
/// Removes, as RemoveDir does, the subfolders of the path's parent that were last changed on an
/// earlier day: in an earlier year or month, or two days or more ago in this month. Returns false
/// only for null, for a path without a parent and without memory.
bool RemoveUndeletedDir(const char* path);
/// Removes a file or a link, or sweeps a folder with RemoveDir and RemoveUndeletedDir. Nothing
/// there is fine.
void DeleteFileOrDir(const char* path);
