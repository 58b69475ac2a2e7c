#include "manager/module_files.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "environment/logging.h"
#include "environment/paths.h"
#include "manager/unzip.h"
#include "os/file.h"
#include "os/text.h"
#include "package/verification.h"
#include "util/cutil.h"

namespace fs = std::filesystem;

namespace {

bool InstallFile(const std::string& source, const std::string& target, Fitness fitness) {
  const mode_t modeIfNew = fitness == Fitness::Data ? 0666 : 0777;  // the latter as CopyFile gives
  if (CUtil::CreateDirectory(target.c_str(), true) == 0) return false;
  Descriptor content;
  off_t size = 0;
  int error = OpenWholeFile(source.c_str(), &content, &size);
  if (error == 0) error = WriteWholeFile(target.c_str(), content, modeIfNew, Flush::Later);
  if (error != 0) errno = error;
  return error == 0;
}

/// An update may bring "service.ini", with the service's version. It also tells whom the service
/// belongs to.
bool IsRefused(const std::string& name) {
  return IsServiceState(name) || ascii::Lower(name) == work_folder::kServiceSettings;
}

/// The name of a path relative to the work folder, whatever links lead there; "" when it lies
/// elsewhere. Nothing needs to be there yet.
std::string NameInWorkFolder(const fs::path& path) {
  const fs::path work = GetWorkPath();
  const fs::path real = fs::weakly_canonical(FollowLinks(path.c_str()));
  for (fs::path folder = real.parent_path(); folder.has_relative_path();
       folder = folder.parent_path()) {
    std::error_code ignored;
    if (fs::equivalent(folder, work, ignored)) return real.lexically_relative(folder);
  }
  return "";
}

std::string Quoted(const std::string& name) { return "The entry \"" + PrintableName(name) + "\" "; }

/// "", or why an entry of an upload, which a manifest does not speak for, needs one.
std::string UnsignedProblem(const fs::path& entry, const fs::path& target) {
  if (package::IsProgram(entry)) return "is a program, and the archive is not signed";
  struct stat status {};
  if (::lstat(target.c_str(), &status) != 0 && errno == ENOENT) return "";
  // Sent once more, as after a lost reply, it replaces nothing.
  const std::string sum = package::Sha256OfFile(entry);
  if (!sum.empty() && sum == package::Sha256OfFile(target)) return "";
  return "would replace a file, and the archive is not signed";
}

/// Throws fs::filesystem_error when a folder cannot be looked at.
Fitness Look(const fs::path& from, const fs::path& to, std::string* why) {
  const auto keys = package::UpdateKeys::Of(GetWorkPath());
  for (const std::string& problem : keys.problems()) LogErr("%s", problem.c_str());
  const bool isSigned = keys.AreRequired() && fs::exists(from / package::SIGNATURE_NAME);
  for (const auto& entry : fs::recursive_directory_iterator(from)) {
    const fs::path name = entry.path().lexically_relative(from);
    if (IsRefused(name)) {
      *why = Quoted(*name.begin()) + "belongs to the service";
      return Fitness::Refused;
    }
    const std::string inWorkFolder = NameInWorkFolder(to / name);
    if (!inWorkFolder.empty() && IsRefused(inWorkFolder)) {
      *why = Quoted(name) + "would go to what belongs to the service";
      return Fitness::Refused;
    }
    if (!keys.AreRequired() || isSigned || !entry.is_regular_file()) continue;
    if (const std::string problem = UnsignedProblem(entry.path(), to / name); !problem.empty()) {
      *why = Quoted(name) + problem;
      return Fitness::Refused;
    }
  }
  if (!keys.AreRequired()) return Fitness::Anything;
  if (!isSigned) return Fitness::Data;
  const auto manifest = package::LoadManifest(from, package::Kind::ModuleFiles, keys, why);
  if (!manifest || !package::HoldsExactly(from, *manifest, why)) {
    return Fitness::Refused;
  }
  fs::remove(from / package::MANIFEST_NAME);
  fs::remove(from / package::SIGNATURE_NAME);
  return Fitness::Anything;
}

}  // namespace

Fitness FitnessOf(const std::string& from, const std::string& to, std::string* why) {
  try {
    return Look(from, to, why);
  } catch (const fs::filesystem_error& problem) {
    *why = "The files cannot be looked at: " + problem.code().message();
    return Fitness::Refused;
  }
}

bool InstallFiles(const std::string& from, const std::string& to, Fitness fitness) {
  try {
    for (const auto& entry : fs::recursive_directory_iterator(from)) {
      if (!entry.is_regular_file()) continue;
      const fs::path target = fs::path(to) / entry.path().lexically_relative(from);
      if (!InstallFile(entry.path(), target, fitness)) return false;
    }
    return true;
  } catch (const fs::filesystem_error& problem) {
    errno = problem.code().value();
    return false;
  }
}
