// The image map and the file whitelist, which the host reads and writes through the exported
// functions.
#pragma once

#include <array>
#include <map>
#include <string>

#include "os/mutex.h"
#include "util/reader_writer_lock.h"

/// An encrypted image map: the host's bytes, never looked into.
using UploadDataStruct = std::array<unsigned char, 2052>;

/// Both stores share one lock, held for a single look. Any thread may call. The results of GetImage
/// and SetImage are those of the exported functions.
class ImageMap {
 public:
  /// The GUID in a url that contains `prefix`: everything behind "GUID=", "" for none.
  static std::string GetGUID(const char* url, const char* prefix);
  int GetImage(const char* url, void* out, unsigned int* len);
  int SetImage(const char* url, const void* data, unsigned int len);
  bool FileIsInWhiteList(const char* path);
  void AddFileToWhiteList(const char* path);

 private:
  CReaderWriterLock dataLock_;
  std::map<std::string, UploadDataStruct> images_ QV_GUARDED_BY(dataLock_);
  std::map<std::string, char> whiteList_ QV_GUARDED_BY(dataLock_);
};
