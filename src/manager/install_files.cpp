#include "manager/install_files.h"

#include <cerrno>
#include <filesystem>

#include "platform/descriptor.h"
#include "platform/file_content.h"
#include "util/cutil.h"

namespace fs = std::filesystem;

namespace {

constexpr mode_t kNewFileMode = 0777;  // what CopyFile gives

bool InstallFile(const std::string& source, const std::string& target) {
  if (CUtil::CreateDirectory(target.c_str(), true) == 0) return false;
  Descriptor content;
  off_t size = 0;
  int error = OpenWholeFile(source.c_str(), &content, &size);
  if (error == 0) error = WriteWholeFile(target.c_str(), content, kNewFileMode, Flush::Later);
  if (error != 0) errno = error;
  return error == 0;
}

}  // namespace

bool InstallFiles(const std::string& from, const std::string& to) {
  try {
    for (const auto& entry : fs::recursive_directory_iterator(from)) {
      if (!entry.is_regular_file()) continue;
      const fs::path target = fs::path(to) / entry.path().lexically_relative(from);
      if (!InstallFile(entry.path(), target)) return false;
    }
    return true;
  } catch (const fs::filesystem_error& problem) {
    errno = problem.code().value();
    return false;
  }
}
