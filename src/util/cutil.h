// CUtil: the static helpers that every room of the house shares. None logs; each tells its outcome
// by its result. None throws: without memory the work fails, and a text stays as it was. Any thread
// may call.
#pragma once

#include <string>

#include "platform/win_types.h"

class CUtil {
 public:
  /// Path of the running executable, or of the application bundle that holds it. `out` has room
  /// for 1,025 bytes.
  static void GetModulePath(char* out);
  /// The folder of GetModulePath with its trailing "/", "" when there is none. `out` has 1,024.
  static void GetDllPath(char* out);
  /// 32 lower-case hexadecimal digits of 16 random bytes, without dashes; unique also where the
  /// system gives no random bytes. `out` has 1,024 bytes. Returns the length, 32.
  static int CreateUUID(char* out);
  /// Local time with milliseconds; the day of the week is 0.
  static _SYSTEMTIME GetLocalTime();

  /// Removes every `c` in place.
  static void RemoveChar(char* s, char c);
  /// Trims trailing blanks, then trailing backslashes, then trailing slashes, in place.
  static void TrimWindowsFileName(char* s);
  static void TrimRight(char* s, char c);
  static int ReverseFindChar(const char* s, char c);
  /// Replaces every `from` by `to`, left to right; replacements are not looked at again.
  static void find_and_replace(std::string& s, const std::string& from, const std::string& to);
  /// The ASCII form of a host name: labels with other characters become "xn--" and their Punycode
  /// (RFC 3492, after the non-transitional mapping of UTS #46, as libidn2 does both), the others
  /// stay as they are. Returns false, `out` untouched, for text that has no such form. `out` has
  /// room for 1,024 bytes.
  static bool IdnToAscii(const char* in, char* out);

  /// Makes every missing folder above the path's last "/": a path that ends in "/" gets itself, a
  /// path that names a file gets its folders. The flag is not used. Returns 1 or 0.
  static BOOL CreateDirectory(const char* path, bool);
  /// Deletes a folder's content and, with `removeSelf`, the folder, or the file of that name. Of a
  /// link to a folder given as the path the target is emptied and, with `removeSelf`, the link
  /// deleted; links below it are deleted, never followed. Prints each path that it visits. Returns
  /// false at the first failure; a folder that cannot be opened is one only when it, or the folder
  /// above it, was to be removed.
  static bool DeleteDirectory(const char* path, bool removeSelf);
  /// Copies a folder's files, and with `recursive` its subfolders, into another folder, replacing
  /// what is there. Links to files are copied as files; links to folders are left out. A source
  /// that is missing or empty is a success. Otherwise returns the result of the last file, or false
  /// at the first folder that could not be made or copied.
  static bool CopyDirectoryFiles(const char* src, const char* dst, bool recursive);
  /// Writes `len` bytes to a file whose folders are made as needed: a new file with offset 0, else
  /// into an existing file at that offset. Returns 0; 22 for no path with offset 0; else 16, and
  /// only when writing failed (not when the file could not be opened) the file is deleted.
  static int SaveDataToFileInner(const char* path, const unsigned char* data, unsigned int len,
                                 unsigned int offset);
};
