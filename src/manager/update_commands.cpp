// The commands that bring files to this machine: module files, certificates, and a new service,
// which a program of its own puts in the place of the running one.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <thread>

#include "environment/configuration.h"
#include "environment/logging.h"
#include "environment/module_identity.h"
#include "environment/paths.h"
#include "manager/host_requests.h"
#include "manager/manager_client.h"
#include "manager/messages.h"
#include "manager/module_files.h"
#include "manager/unzip.h"
#include "os/text.h"
#include "package/update_record.h"
#include "package/verification.h"
#include "platform/file.h"
#include "platform/system_time.h"
#include "platform/text.h"
#include "util/cutil.h"

namespace {

enum ZipKind : int { ZIP_MODULE_FILES = 0, ZIP_SERVICE = 1, ZIP_CERTIFICATES = 2 };

constexpr std::size_t kPathBytes = 1024;

std::string Formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Formatted(const char* format, ...) {
  char text[kPathBytes];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string ModuleFolder() {
  char folder[kPathBytes];
  CUtil::GetDllPath(folder);
  return folder;
}

std::string PackageIn(const std::string& folder, const std::string& version) {
  return Formatted("%sService_%s.zip", folder.c_str(), version.c_str());
}

std::string StagingFolder(const std::string& version) {
  return Formatted("%sUpdate_%s%s", GetCachePath().c_str(), version.c_str(), "/");
}

/// Where a service package is unpacked, and the updater in it is started.
std::string ServiceFolder() {
  return Formatted("%s%s%s", GetCachePath().c_str(), PACKAGE_FOLDER, "/");
}

/// Deletes a folder with its content and makes it anew, for nobody but this user: what was checked
/// there stays what it was.
void MakeEmptyFolder(const std::string& folder) {
  CUtil::DeleteDirectory(folder.c_str(), true);
  if (CUtil::CreateDirectory(folder.c_str(), true) == 0 || ::chmod(folder.c_str(), S_IRWXU) != 0) {
    LogErr("Failed to create dir %s, %d", folder.c_str(), GetLastError());
  }
}

/// An empty folder that is deleted with its content at the end of a scope.
class ScratchFolder {
 public:
  explicit ScratchFolder(std::string path) : path_(std::move(path)) { MakeEmptyFolder(path_); }
  ~ScratchFolder() { CUtil::DeleteDirectory(path_.c_str(), true); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  const std::string path_;
};

/// A file's name that nothing has at the begin of a scope, nor at its end.
class ScratchFile {
 public:
  explicit ScratchFile(std::string path) : path_(std::move(path)) { DeleteFile(path_.c_str()); }
  ~ScratchFile() { DeleteFile(path_.c_str()); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  const std::string path_;
};

void Report(int code, const std::string& message) {
  LogErr("%s", message.c_str());
  ManagerClient::SetErrorInfo(code, message.c_str());
}

/// `why` may be a sentence.
void Report(int code, const char* what, std::string why, int error) {
  if (why.ends_with('.')) why.pop_back();
  Report(code, Formatted("%s %s %d", what, why.c_str(), error));
}

/// A version becomes part of the names of folders that are deleted.
bool IsVersionRefused(const std::string& version) {
  constexpr std::size_t kLongestName = 255;
  const bool isPlain = version.find_first_of("/\\") == version.npos &&
                       version.find("..") == version.npos && !ascii::HasControl(version);
  const std::string file = "Service_" + version + ".zip";
  if (isPlain && file.size() <= kLongestName &&
      GetCachePath().size() + sizeof "Update_/" + version.size() + file.size() < kPathBytes) {
    return false;
  }
  Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, "Invalid version", EINVAL);
  return true;
}

/// The text as a shell reads it between double quotes.
std::string ShellQuoted(const std::string& text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\' || c == '$' || c == '`') quoted += '\\';
    quoted += c;
  }
  return quoted;
}

/// Whether the updater in an unpacked package may be started. Where update keys are required, the
/// package must be signed, whole and not below the installed version, since what it runs is a part
/// of it; the updater checks again what it installs. If not, `why` tells the reason.
bool MayBeRun(const std::string& folder, std::string* why) {
  const auto keys = package::UpdateKeys::Of(GetWorkPath());
  if (!keys.AreRequired()) return true;
  for (const std::string& problem : keys.problems()) LogErr("%s", problem.c_str());
  struct stat status {};
  if (::lstat(folder.substr(0, folder.size() - 1).c_str(), &status) != 0 ||
      !S_ISDIR(status.st_mode) || status.st_uid != ::geteuid()) {
    *why = "The package lies in a folder of another user";
    return false;
  }
  const auto manifest = package::LoadManifest(folder, package::Kind::Service, keys, why);
  if (!manifest || !package::HoldsExactly(folder, *manifest, why)) return false;
  const std::string installed =
      GetConfigurationfromInitFile(INSTALLED_VERSION_KEY, "0", DEFAULT_SECTION);
  if (!package::IsLowerVersion(manifest->version, installed)) return true;
  *why = "The package holds version " + PrintableName(manifest->version) +
         ", which is below the installed " + installed;
  return false;
}

void TellUpdate(package::UpdateRecord::State state, const std::string& version,
                const char* reason) {
  package::WriteUpdateRecord(GetWorkPath() + work_folder::kUpdateRecord, state, version, reason);
}

/// Unpacks the archive that a request carries. `tick` makes the archive's name its own.
bool UnpackBody(const HttpParamResponse& body, unsigned int tick, const std::string& folder) {
  std::optional<ScratchFile> copy;
  int saved = 0;
  if (body.GetFile().empty()) {
    copy.emplace(Formatted("%smodule_%d.zip", GetCachePath().c_str(), static_cast<int>(tick)));
    saved = CUtil::SaveDataToFileInner(copy->path().c_str(), body.GetData(),
                                       static_cast<unsigned int>(body.GetDataLen()), 0);
    if (saved != 0) {
      LogErr("Failed to SaveFile file %s, %d, %d", copy->path().c_str(), saved, GetLastError());
    }
  }
  const int saveError = GetLastError();
  const std::string& archive = copy ? copy->path() : body.GetFile();
  Compress compress;
  if (compress.Unzip(archive.c_str(), folder.c_str())) return true;
  // The extractor would name the file in the cache, which says nothing to who sent it.
  if (saved != 0) {
    Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, "The upload cannot be stored", saveError);
  } else if (!compress.IsArchive()) {
    Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, "The upload is no zip archive", GetLastError());
  } else {
    Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, compress.GetErrorDescription(), GetLastError());
  }
  return false;
}

std::size_t CountDigits(int number) {
  const std::string text = std::to_string(number);
  return text.size() - (number < 0 ? 1 : 0);
}

}  // namespace

bool ManagerClient::CheckIfUpdate() {
  return GetConfigurationfromInitFile(UPDATE_MARK_KEY, "0", DEFAULT_SECTION) == "1";
}

bool ManagerClient::CheckIfAlreadyNewVersion(const std::string& version) {
  if (version.empty()) return false;
  std::string stored = GetConfigurationfromInitFile(INSTALLED_VERSION_KEY, "0", DEFAULT_SECTION);
  std::erase(stored, ' ');
  const int given = TextToInt(version.c_str());
  const int firstField = TextToInt(stored.c_str());
  // 13,0,0,404 is asked about by its first field alone, or by all of its digits.
  const bool hasFields = stored.find(',') != stored.npos;
  if (hasFields && CountDigits(given) <= CountDigits(firstField)) return firstField >= given;
  std::erase(stored, ',');
  return TextToInt(stored.c_str()) >= given;
}

bool ManagerClient::CheckIfValid(const std::string& package) {
  CUtil::DeleteDirectory(ServiceFolder().c_str(), true);
  // Only what was unpacked whole and may be run gets the folder's name. A check that is interrupted
  // leaves a folder that the next start removes.
  const ScratchFolder unpacked(
      Formatted("%sUnzip_%s%s", GetCachePath().c_str(), PACKAGE_FOLDER, "/"));
  Compress compress;
  if (!compress.Unzip(package.c_str(), unpacked.path().c_str())) {
    Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, compress.GetErrorDescription(), GetLastError());
    return false;
  }
  if (std::string why; !MayBeRun(unpacked.path(), &why)) {
    Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, why, EPERM);
    return false;
  }
  if (::rename(unpacked.path().c_str(), ServiceFolder().c_str()) == 0) return true;
  Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, "The package cannot be moved", GetLastError());
  return false;
}

int ManagerClient::StartUpdateProgress(const std::string& updater) {
  LogDebug("Create update process begin: %s", updater.c_str());
  const std::string makeExecutable = "chmod 777 \"" + ShellQuoted(updater) + "\"";
  [[maybe_unused]] const int ignored = std::system(makeExecutable.c_str());
  const int error = updater_.Start({updater, GetWorkPath()});
  if (error == 0) {
    LogInfo("Create Update process succeed.");
    return 0;
  }
  LogErr("Create update process failed %d", error);
  SetConfigurationToInitFile(UPDATE_MARK_KEY, "0", DEFAULT_SECTION);
  Report(QTP_CREATE_PROGRESS_FAILED, QTP_CreateProgressFailedStr);
  return error;
}

bool ManagerClient::UpdateServieInner(const std::string& updater) {
  return StartUpdateProgress(updater) == 0;
}

bool ManagerClient::ValidFiles(const std::string&) { return true; }
bool ManagerClient::ValidSigned(const std::string&) { return true; }
bool ManagerClient::ValidFileName(const std::string&, const std::string&) { return false; }

/// The turn of an update command, held for its whole length; not held, with the last error set,
/// while another one runs, an update is in progress or its updater runs, which needs the folder
/// that this one would empty.
std::unique_lock<Mutex> ManagerClient::TakeUpdateTurn() {
  // One that is about to end clears its mark before it does.
  constexpr std::chrono::seconds kUpdaterEnds(2);
  std::unique_lock turn(updateMutex_, std::try_to_lock);
  if (turn && (!updater_.EndsWithin(kUpdaterEnds) || CheckIfUpdate())) turn.unlock();
  if (!turn) Report(QTP_UPDATING, Formatted("%s %s", SERVICE_NAME, QTP_UpdattingStr));
  return turn;
}

/// The tick count of now, which no other call gets: names are made of it for what runs side by
/// side.
unsigned int ManagerClient::UniqueTick() {
  const MutexLock lock(tickMutex_);
  while (GetTickCount() == lastTick_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return lastTick_ = GetTickCount();
}

/// Brings the files of an archive that a request carries to their place, by way of the cache.
bool ManagerClient::InstallZip(const HttpParamResponse& body, const std::string& destination) {
  const ScratchFolder unpacked(
      Formatted("%sUnzip_%d%s", GetCachePath().c_str(), static_cast<int>(UniqueTick()), "/"));
  if (!UnpackBody(body, UniqueTick(), unpacked.path())) return false;
  // The files of one archive arrive together.
  const MutexLock oneAtATime(copyMutex_);
  std::string why;
  const Fitness fitness = destination == ModuleFolder()
                              ? FitnessOf(unpacked.path(), destination, &why)
                              : Fitness::Anything;
  if (fitness == Fitness::Refused) {
    Report(QTP_UNZIP_FAILED, QTP_UnzipFailedStr, why, EPERM);
    return false;
  }
  if (InstallFiles(unpacked.path(), destination, fitness)) return true;
  Report(QTP_COPY_FAILED, QTP_CopyFailedStr, "", GetLastError());
  return false;
}

/// Starts the updater of that name, when its package was good, and tells how the update stands.
bool ManagerClient::BeginUpdate(bool isGood, const std::string& version, const char* updater) {
  using State = package::UpdateRecord::State;
  if (isGood) TellUpdate(State::Running, version, "");
  const bool begun = isGood && UpdateServieInner(ServiceFolder() + updater);
  if (!begun) TellUpdate(State::Refused, version, GetErrorMessage());
  return begun;
}

bool ManagerClient::InstallService(const HttpParamResponse& body, const std::string& version) {
  const ScratchFolder staging(StagingFolder(version));
  const bool isGood =
      InstallZip(body, staging.path()) && CheckIfValid(PackageIn(staging.path(), version));
  return BeginUpdate(isGood, version, "QVUpdate");
}

ManagerClient::Result ManagerClient::LoadZipFromBytes(HttpParamRequest* request) {
  const ParamStack& stack = request->GetParamStack();
  int kind = ZIP_MODULE_FILES;
  std::string version;
  if (request->GetParameterCount() < 2 || !JsonCommand::ConvertInt(stack[0].get(), &kind) ||
      !JsonCommand::GetUTF8String(stack[1].get(), &version)) {
    kind = ZIP_MODULE_FILES;
    version.clear();
  }
  HttpParamResponse& body = *request->GetHttpParamResponse();
  // A payload that the host keeps in a file need not be copied into another.
  if (body.GetData() != nullptr) body.SetFile(AskHostForText(*request, HOST_GET_UPLOAD_FILE));
  if (kind != ZIP_SERVICE) {
    const bool certificates = kind == ZIP_CERTIFICATES;
    return BoolResult(request, InstallZip(body, certificates ? GetCertPath() : ModuleFolder()));
  }
  const auto turn = TakeUpdateTurn();
  if (!turn || IsVersionRefused(version)) return BoolResult(request, false);
  return BoolResult(request, CheckIfAlreadyNewVersion(version) || InstallService(body, version));
}

ManagerClient::Result ManagerClient::CheckUpdateFile(HttpParamRequest* request) {
  std::string version;
  if (request->GetParameterCount() > 0) {
    JsonCommand::GetUTF8String(request->GetParamStack()[0].get(), &version);
  }
  const auto turn = TakeUpdateTurn();
  if (!turn || IsVersionRefused(version)) return BoolResult(request, false);
  if (CheckIfAlreadyNewVersion(version)) return BoolResult(request, true);
  const std::string package = PackageIn(ModuleFolder(), version);
  const bool isGood = CheckIfValid(package);
  DeleteFile(package.c_str());
  return BoolResult(request, BeginUpdate(isGood, version, "QVUpdate.exe"));
}
