#include "host/http/upload_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "os/system.h"

namespace host {

UploadFile::~UploadFile() {
  if (data_ != nullptr) ::munmap(data_, size_);
}

int UploadFile::Make(const std::string& folder) {
  ::mkdir(folder.c_str(), 0777);  // where it is missing
  std::string name = folder + kUploadPrefix + "XXXXXX";
  file_ = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
  if (!file_) return errno;
  return ::unlink(name.c_str()) == 0 ? 0 : errno;
}

int UploadFile::Append(std::string_view bytes) {
  const int error = WriteAll(file_.get(), bytes);
  if (error == 0) size_ += bytes.size();
  return error;
}

int UploadFile::Map() {
  if (size_ == 0) return 0;
  void* const data = ::mmap(nullptr, size_, PROT_READ, MAP_SHARED, file_.get(), 0);
  if (data == MAP_FAILED) return errno;
  data_ = data;
  return 0;
}

std::string UploadFile::path() const { return os::PathOfDescriptor(file_.get()); }

}  // namespace host
