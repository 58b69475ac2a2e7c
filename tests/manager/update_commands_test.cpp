// Unpacking, and what is decided about an update; what archives may not do, and what is installed,
// is tried by the tests of the started service.
#include <minizip/zip.h>

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

}  // namespace
