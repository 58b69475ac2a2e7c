#include "manager/compress.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "manager/zip_reader.h"
#include "platform/file.h"
#include "platform/file_content.h"
#include "platform/text.h"
#include "util/cutil.h"

bool Compress::Fail(int error, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(description_, sizeof description_, format, arguments);
  va_end(arguments);
  errno = error;
  return false;
}

bool Compress::Unzip(const char* zipFile, const char* folder) {
  constexpr std::size_t kLongestArchiveName = 255;
  description_[0] = '\0';
  if (GetFileAttributes(zipFile) == -1) {
    return Fail(errno, "Cannot find the specified file \"%s\"", zipFile);
  }
  char target[1024];
  lstrcpyn(target, folder, sizeof target);
  CUtil::TrimWindowsFileName(target);
  CUtil::CreateDirectory((target + std::string("/")).c_str(), true);

  ZipReader reader;
  const std::string archive = std::string(zipFile).substr(0, kLongestArchiveName);
  if (!reader.Open(archive.c_str()) && !reader.Open((archive + ".zip").c_str())) {
    return Fail(errno, "Cannot open %s or %s.zip", zipFile, zipFile);
  }
  const std::string absolute = FollowLinks(target);
  if (::chdir(target) != 0) return Fail(errno, "Error changing into %s", target);
  if (reader.ReadEntries() && reader.ExtractAll(absolute)) return true;
  return Fail(errno, "%s", reader.why().c_str());
}
