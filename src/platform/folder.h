// Folders: making them and removing trees of them.
//
// A link to a folder that is given as the path stands for that folder. Links below it are removed
// as links and never followed, also when one is put there during the removal.
#pragma once

#include "platform/win_types.h"

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
/// only for null and for a path without a parent.
bool RemoveUndeletedDir(const char* path);
/// Removes a file or a link, or sweeps a folder with RemoveDir and RemoveUndeletedDir. Nothing
/// there is fine.
void DeleteFileOrDir(const char* path);
