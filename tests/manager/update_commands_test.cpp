// Unpacking, and what is decided about an update; what archives may not do, and what is installed,
// is tried by the tests of the started service.
#include <minizip/zip.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <mutex>
#include <thread>
#include <tuple>

#include "manager/module_files.h"
#include "manager/unzip.h"
#include "support/host_double.h"

namespace {

using Files = std::vector<std::pair<std::string, std::string>>;

void MakeZip(const std::string& path, const Files& files) {
  const zipFile zip = ::zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  ASSERT_NE(zip, nullptr);
  for (const auto& [name, content] : files) {
    ASSERT_EQ(::zipOpenNewFileInZip(zip, name.c_str(), nullptr, nullptr, 0, nullptr, 0, nullptr,
                                    Z_DEFLATED, Z_DEFAULT_COMPRESSION),
              ZIP_OK);
    ::zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size()));
    ::zipCloseFileInZip(zip);
  }
  ASSERT_EQ(::zipClose(zip, nullptr), ZIP_OK);
}

// "" for success, else errno and description.
std::string Unzip(const std::string& zip, const std::string& folder) {
  Compress compress;
  const bool good = compress.Unzip(zip.c_str(), folder.c_str());
  const std::string error = good ? "" : std::to_string(errno) + " ";
  return error + compress.GetErrorDescription();
}

TEST(Archives, AreUnpackedBelowTheFolderWhateverStandsThere) {
  const TempFolder temp;
  const TempFolder elsewhere;
  MakeZip(temp / "a.zip", {{"sub/new", "new"}, {"file", "unpacked"}, {"link", "unpacked"}});
  Spit(temp / "kept", "kept");
  fs::create_directory(temp / "out");
  Spit(temp / "out/file", "old and longer");
  fs::create_symlink(temp / "kept", temp / "out/link");
  // The folder is given relative, the name ends as on another system, and the archive, without its
  // extension, is reached from a folder that is left.
  fs::current_path(temp.path());
  Spit("a", "no archive");
  EXPECT_EQ(Unzip("a", "out/\\"), "");
  EXPECT_EQ(fs::current_path(), fs::path(temp / "out"));
  for (const char* name : {"out/file", "out/link"}) EXPECT_EQ(Slurp(temp / name), "unpacked");
  EXPECT_EQ(Slurp(temp / "kept"), "kept");

  fs::remove_all(temp / "out/sub");
  fs::create_directory_symlink(elsewhere.path(), temp / "out/sub");
  const std::string bad = temp / "kept", missing = temp / "missing";
  const Table<std::string, const char*, std::string> kRefused = {
      {"a.zip", "out", "20 The entry \"sub/new\" cannot have its folder"},
      {"a.zip", "kept", "20 Error changing into " + bad},
      {"kept", "out", "2 Cannot open " + bad + " or " + bad + ".zip"},
      {"missing", "none", "2 Cannot find the specified file \"" + missing + "\""}};
  for (const auto& [zip, folder, told] : kRefused) {
    EXPECT_EQ(Unzip(temp / zip, temp / folder), told);
  }
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));
  EXPECT_FALSE(fs::exists(temp / "none"));
  fs::current_path("/");
}

using UpdateCommands = Commands;

TEST_F(UpdateCommands, CompareVersionsByTheFirstFieldOrByAllDigits) {
  const Table<const char*, const char*, bool> kVersions = {{"13,0,0,404", "13", true},
                                                           {"13,0,0,404", "14", false},
                                                           {"13,0,0,404", "17300531", false},
                                                           {"17, 3, 0, 0531", "17300531", true},
                                                           {"18,0,0,1", "18,0,0,2", true},
                                                           {"18,0,0,1", "18002", false},
                                                           {"17,3,0,0531", "17401", true},
                                                           {"9,0,0,1", "10", true},
                                                           {"17300531", "18x", true},
                                                           {"9", "99999999999999999", false},
                                                           {"9,0", "-5", true},
                                                           {"9", "", false}};
  for (const auto& [stored, given, isInstalled] : kVersions) {
    SetConfigurationToInitFile("QVVersion", stored, DEFAULT_SECTION);
    EXPECT_EQ(ManagerClient::CheckIfAlreadyNewVersion(given), isInstalled)
        << stored << "|" << given;
  }
}

// The path goes through a shell.
TEST_F(UpdateCommands, MakeAnyUpdaterExecutableAndNothingElse) {
  const TempFolder temp;
  const std::string updater = temp / "a \"quoted\" `touch x` $(touch x) \\ 'name'";
  Spit(updater, "no program");
  fs::permissions(updater, fs::perms::owner_read);
  EXPECT_FALSE(manager_.UpdateServieInner(updater));
  EXPECT_EQ(fs::status(updater).permissions(), fs::perms::all);
  EXPECT_FALSE(fs::exists("x"));
}

// The updater in it is writable for everybody.
TEST_F(UpdateCommands, UnpackAPackageWhereNobodyElseGets) {
  const TempFolder temp;
  MakeZip(temp / "a.zip", {{"QVUpdate", "updater"}});
  const mode_t mask = ::umask(0);
  EXPECT_TRUE(ManagerClient::CheckIfValid(temp / "a.zip"));
  ::umask(mask);
  const fs::path folder = GetCachePath() + "MarviqueService";
  EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
  fs::current_path("/");
  fs::remove_all(folder);
}

TEST_F(UpdateCommands, LetModuleFilesGoNowhereThatBelongsToTheService) {
  const fs::path work = fs::path(GetWorkPath()).parent_path();
  const std::string below = work.filename().string() + "/";
  const TempFolder elsewhere;
  fs::create_directory_symlink(work, elsewhere / "work");
  fs::create_symlink(work / "service.run", elsewhere / "run");
  fs::create_symlink(work / "update_keys/a.pem", elsewhere / "key");
  const Table<std::string, std::string, const char*> cases = {
      {work, "data", ""},
      {work, "sub/service.run", ""},
      {work, "update.state", "belongs to the service"},
      {work, "Update_Keys/a.pem", "belongs to the service"},
      {work / "modules", "cache", "belongs to the service"},
      {work / "modules", "data", ""},
      {work.parent_path(), below + "data", ""},
      {work.parent_path(), "data", ""},
      {work.parent_path(), below + "service.ini", "would go to what belongs"},
      {work.parent_path(), below + "cache/MarviqueService/QVUpdate", "would go to what belongs"},
      {work.parent_path(), below + "update_keys/a.pem", "would go to what belongs"},
      {elsewhere.path(), "work/data", ""},
      {elsewhere.path(), "work/service.run", "would go to what belongs"},
      {elsewhere.path(), "run", "would go to what belongs"},
      {elsewhere.path(), "key", "would go to what belongs"},
  };
  for (const auto& [to, name, told] : cases) {
    const TempFolder unpacked;
    fs::create_directories(fs::path(unpacked / name).parent_path());
    Spit(unpacked / name, "x");
    std::string why;
    EXPECT_EQ(FitnessOf(unpacked.path(), to + "/", &why),
              *told == '\0' ? Fitness::Anything : Fitness::Refused)
        << name;
    EXPECT_NE(why.find(told), why.npos) << to << " " << name << ": " << why;
  }
  std::string why;
  EXPECT_EQ(FitnessOf(elsewhere / "missing/", work.string() + "/", &why), Fitness::Refused);
  EXPECT_NE(why.find("cannot be looked at"), why.npos) << why;
}

/// A program that tells its process number and runs until somebody ends it.
class LongRunning {
 public:
  LongRunning() { Spit(program(), "#!/bin/sh\necho $$ >\"$0.pid\"; exec sleep 600\n"); }
  ~LongRunning() {
    EXPECT_TRUE(WaitUntil([&] { return !Slurp(program() + ".pid").empty(); }));
    ::kill(std::atoi(Slurp(program() + ".pid").c_str()), SIGKILL);
  }
  std::string program() const { return folder_ / "updater"; }

 private:
  const TempFolder folder_;
};

TEST_F(UpdateCommands, AreRefusedWhileAnUpdateIsInProgress) {
  const char* kUpdating = "Marvique Service is updating, please wait.";
  SetConfigurationToInitFile("IfUpdate", "1", DEFAULT_SECTION);
  for (const char* version : {"18", "no/version"}) {
    for (const auto& [method, parameters] : Table<const char*, std::string>{
             {"CheckUpdateFile", "[\""}, {"LoadZipFromBytes", "[1,\""}}) {
      const Json::Value reply = Parsed(Reply(method, parameters + version + "\"]"));
      EXPECT_EQ(reply["exception"], -2373) << method << version;
      EXPECT_EQ(reply["description"], kUpdating);
    }
  }
  SetConfigurationToInitFile("IfUpdate", "0", DEFAULT_SECTION);
  EXPECT_EQ(Parsed(Reply("CheckUpdateFile", R"(["no/version"])"))["exception"], -2405);
}

TEST_F(UpdateCommands, WaitForAnUpdaterThatIsJustEnding) {
  const TempFolder temp;
  Spit(temp / "updater", "#!/bin/sh\nexec sleep 0.3\n");
  ASSERT_TRUE(manager_.UpdateServieInner(temp / "updater"));
  EXPECT_EQ(Parsed(Reply("CheckUpdateFile", R"(["18"])"))["exception"], -2405) << "no package";
}

TEST_F(UpdateCommands, NeverWaitForOneAnother) {
  const LongRunning updater;
  ASSERT_TRUE(manager_.UpdateServieInner(updater.program()));
  const auto begin = std::chrono::steady_clock::now();
  std::mutex mutex;
  std::vector<std::tuple<double, std::string, int>> replies;
  const auto run = [&](const char* method, const char* parameters) {
    const int code = Parsed(Reply(method, parameters))["exception"].asInt();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    const std::lock_guard lock(mutex);
    replies.emplace_back(seconds.count(), method, code);
  };
  const auto count = [&] {
    const std::lock_guard lock(mutex);
    return replies.size();
  };
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 3; ++i) threads.emplace_back(run, "CheckUpdateFile", R"(["18"])");
    // One has the turn and waits two seconds for the updater; the others are refused meanwhile.
    EXPECT_TRUE(WaitUntil([&] { return count() >= 2; }));
    {
      const std::lock_guard lock(mutex);
      EXPECT_LT(std::get<0>(replies.at(1)), 2);
    }
    for (int i = 0; i < 2; ++i) threads.emplace_back(run, "LoadZipFromBytes", R"([2,""])");
  }
  ASSERT_EQ(replies.size(), 5u);
  EXPECT_EQ(std::get<1>(replies[4]), "CheckUpdateFile") << "an upload waited for an update";
  for (const auto& [seconds, method, code] : replies) {
    EXPECT_EQ(code, method == "CheckUpdateFile" ? -2373 : -2405);
  }
}

}  // namespace
