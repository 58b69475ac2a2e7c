// The body of an upload, on the disk instead of in memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "os/file.h"

namespace host {

/// How the file is called for the moment in which it has a name. A process that is killed just then
/// leaves it.
inline constexpr const char* kUploadPrefix = "upload_";

/// A file that nobody finds by a name, private to this process's account, and gone with the object.
/// One thread at a time.
class UploadFile {
 public:
  UploadFile() = default;
  ~UploadFile();
  UploadFile(const UploadFile&) = delete;
  UploadFile& operator=(const UploadFile&) = delete;

  /// Each returns 0 or an errno. First the file is made in a folder, which ends in "/"; then it is
  /// written piece by piece; at last it is mapped into memory, and does not change any more.
  int Make(const std::string& folder);
  int Append(std::string_view bytes);
  int Map();

  /// The mapped content, of which only what is looked at takes memory; null when it is empty.
  const void* data() const { return data_; }
  std::size_t size() const { return size_; }
  /// A path by which this process can open the file while the object lives.
  std::string path() const;

 private:
  Descriptor file_;
  std::size_t size_ = 0;
  void* data_ = nullptr;
};

}  // namespace host
