// Unpacking, and the commands that install what was unpacked; what archives may not do is tried by
// the tests of the started service.
#include <minizip/zip.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/host_double.h"
#include "manager/compress.h"
#include "platform/child_process.h"
#include "util/cutil.h"

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

bool WaitUntil(auto condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class CompressTest : public ::testing::Test {
 protected:
  ~CompressTest() override { fs::current_path("/"); }

  // "" for success, else errno and description.
  std::string Unzip(const std::string& zip, const std::string& folder) {
    const bool good = compress_.Unzip(zip.c_str(), folder.c_str());
    const std::string error = good ? "" : std::to_string(errno) + " ";
    return error + compress_.GetErrorDescription();
  }

  const TempFolder temp_;
  Compress compress_;
};

TEST_F(CompressTest, TellsWhichFileItCouldNotOpen) {
  const std::string missing = temp_ / "missing.zip";
  EXPECT_EQ(Unzip(missing, temp_ / "out"), "2 Cannot find the specified file \"" + missing + "\"");
  EXPECT_FALSE(fs::exists(temp_ / "out"));

  const std::string bad = temp_ / "bad";
  Spit(bad, "no archive");
  EXPECT_EQ(Unzip(bad, temp_ / "out"), "2 Cannot open " + bad + " or " + bad + ".zip");
  MakeZip(bad + ".zip", {{"a", "1"}});
  EXPECT_EQ(Unzip(bad, temp_ / "out"), "") << "with the extension there is one";
}

TEST_F(CompressTest, UnpacksBelowTheFolderWhateverStandsThere) {
  const TempFolder elsewhere;
  MakeZip(temp_ / "a.zip", {{"sub/new", "new"}, {"file", "unpacked"}, {"link", "unpacked"}});
  Spit(temp_ / "kept", "kept");
  fs::create_directory(temp_ / "out");
  Spit(temp_ / "out/file", "old and longer");
  fs::create_symlink(temp_ / "kept", temp_ / "out/link");
  // The folder is given relative, the name ends as on another system, and the archive is reached
  // from a folder that is left.
  fs::current_path(temp_.path());
  EXPECT_EQ(Unzip("a.zip", "out/\\"), "");
  EXPECT_EQ(fs::current_path(), fs::path(temp_ / "out"));
  for (const char* name : {"out/file", "out/link"}) EXPECT_EQ(Slurp(temp_ / name), "unpacked");
  EXPECT_EQ(Slurp(temp_ / "kept"), "kept");

  fs::remove_all(temp_ / "out/sub");
  fs::create_directory_symlink(elsewhere.path(), temp_ / "out/sub");
  EXPECT_EQ(Unzip(temp_ / "a.zip", temp_ / "out"),
            "20 The entry \"sub/new\" cannot have its folder");
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));
  EXPECT_EQ(Unzip(temp_ / "a.zip", temp_ / "kept"), "20 Error changing into " + (temp_ / "kept"));
}

class UpdateCommands : public Commands {
 protected:
  UpdateCommands() { fs::remove_all(GetCachePath()); }

  // The reply to an upload of an archive as "code description value".
  std::string Upload(const std::string& parameters, const Files& files) {
    MakeZip(temp_ / "made.zip", files);
    const std::string body = Slurp(temp_ / "made.zip");
    auto payload = std::make_unique<unsigned char[]>(body.size());
    std::copy(body.begin(), body.end(), payload.get());
    HostDouble host;
    HttpParamRequest request(3, &host,
                             R"({"method":"LoadZipFromBytes","parameter":)" + parameters + "}", 1,
                             0, "", &HostDouble::Wrap, &HostDouble::Take, nullptr, nullptr, nullptr,
                             std::move(payload), static_cast<long>(body.size()), true);
    manager_.Function(&request);
    const Json::Value reply = Parsed(host.sent.at(0).text);
    const Json::Value& result = reply["result"];
    return reply["exception"].asString() + " " + reply["description"].asString() + " " +
           result[result.size() - 1].asString();
  }

  const TempFolder temp_;
};

TEST_F(UpdateCommands, CompareVersionsByTheFirstFieldOrByAllDigits) {
  const Table<const char*, const char*, bool> kVersions = {{"13,0,0,404", "13", true},
                                                           {"13,0,0,404", "14", false},
                                                           {"13,0,0,404", "17300531", false},
                                                           {"17, 3, 0, 0531", "17300531", true},
                                                           {"17300531", "18", true},
                                                           {"1 3", "13x", true},
                                                           {"9", "99999999999999999", false},
                                                           {"9,0", "-5", true},
                                                           {"9", "", false}};
  for (const auto& [stored, given, isInstalled] : kVersions) {
    SetConfigurationToInitFile("QVVersion", stored, DEFAULT_SECTION);
    EXPECT_EQ(ManagerClient::CheckIfAlreadyNewVersion(given), isInstalled)
        << stored << "|" << given;
  }
  for (const std::string mark : {"1", "0", "01", "1x", "TRUE"}) {
    SetConfigurationToInitFile("IfUpdate", mark.c_str(), DEFAULT_SECTION);
    EXPECT_EQ(ManagerClient::CheckIfUpdate(), mark == "1") << mark;
  }
}

TEST_F(UpdateCommands, TakeWhatHasNoKindForModuleFiles) {
  const Table<const char*, std::string> kUploads = {
      {"[2]", GetWorkPath()},        {R"([{},"1"])", GetWorkPath()},
      {"[1,{}]", GetWorkPath()},     {R"([-7,"1"])", GetWorkPath()},
      {R"([2,"1"])", GetCertPath()}, {R"(["2","../x"])", GetCertPath()}};
  for (const auto& [parameters, folder] : kUploads) {
    EXPECT_EQ(Upload(parameters, {{"sent/file", parameters}, {"sent/empty", ""}}), "  true");
    EXPECT_EQ(Slurp(folder + "sent/file"), parameters);
    EXPECT_TRUE(fs::exists(folder + "sent/empty"));
    fs::remove_all(folder + "sent");
  }
}

TEST_F(UpdateCommands, TellOfEachFileThatDidNotArrive) {
  fs::create_directories(GetCertPath() + "b");
  Spit(GetCertPath() + "c", "a file");
  const Files kBlocked[] = {
      {{"a", "1"}, {"b", "2"}, {"d", "3"}}, {{"b", ""}, {"d", "3"}}, {{"c/d", "1"}, {"d", "3"}}};
  for (const Files& files : kBlocked) {
    const std::string reply = Upload(R"([2,""])", files);
    EXPECT_EQ(reply.substr(0, 25), "-2406 Failed to copy dir ") << reply;
    EXPECT_TRUE(fs::is_empty(GetCachePath()));
  }
  EXPECT_EQ(Slurp(GetCertPath() + "c"), "a file");
  fs::remove_all(GetCertPath());
}

// The path goes through a shell.
TEST_F(UpdateCommands, MakeAnyUpdaterExecutableAndNothingElse) {
  const std::string updater = temp_ / "a \"quoted\" `touch x` $(touch x) \\ 'name'";
  Spit(updater, "#!/bin/sh\necho \"$1\" >\"$0.out\"\n");
  fs::permissions(updater, fs::perms::owner_read);
  SetConfigurationToInitFile("IfUpdate", "1", DEFAULT_SECTION);
  EXPECT_TRUE(manager_.UpdateServieInner(updater));
  EXPECT_TRUE(WaitUntil([&] { return Slurp(updater + ".out") == GetWorkPath() + "\n"; }));
  EXPECT_EQ(fs::status(updater).permissions(), fs::perms::all);
  EXPECT_EQ(Stored("IfUpdate"), "1");
  EXPECT_FALSE(fs::exists("x"));
}

TEST(ChildProcess, LeavesNoZombieAndOutlivesItsStarter) {
  const TempFolder temp;
  const std::string mark = temp / "pid";
  const std::string script = "echo $$ >\"$0\".tmp; mv \"$0\".tmp \"$0\"; ";
  const auto pid = [&] { return std::atoi(Slurp(mark).c_str()); };
  {
    ChildProcess child;
    EXPECT_EQ(child.Start({"sh", "-c", script, mark}), 0);
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(mark); }));
    EXPECT_TRUE(WaitUntil([&] { return ::kill(pid(), 0) != 0; })) << "a zombie could be signalled";
    fs::remove(mark);
    EXPECT_EQ(child.Start({"sh", "-c", script + "exec sleep 600", mark}), 0);
    EXPECT_EQ(child.Start({"true"}), EBUSY);
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(mark); }));
  }
  EXPECT_EQ(::kill(pid(), SIGKILL), 0) << "it did not outlive its starter";
}

}  // namespace
