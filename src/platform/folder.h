// Folders: making them and removing trees of them.
#pragma once

#include "platform/win_types.h"

/// Makes one folder; its parent must exist. Returns 1, or 0 on failure and when the path exists.
BOOL CreateDirectory(const char* path, void* security);
/// Removes a folder with its content, but ends early: after the first subfolder that was removed
/// completely it stops with 1, and after a file that could not be removed with 0. Callers that
/// need the whole tree gone call again or use RemoveUndeletedDir. A link is removed, never
/// followed. Returns 1 or 0.
BOOL RemoveDir(const char* path);
/// Removes the subfolders of the path's parent that were last changed on an earlier day: in an
/// earlier year or month, or two days or more ago in this month. Returns false only when the path
/// has no parent.
bool RemoveUndeletedDir(const char* path);
/// Removes a file, or sweeps a folder with RemoveDir and RemoveUndeletedDir. Nothing there is fine.
void DeleteFileOrDir(const char* path);
