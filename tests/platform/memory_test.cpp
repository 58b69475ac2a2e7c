// Calls of the platform layer when memory runs out, at each place where they ask for some.
#include "platform/file.h"
#include "platform/profile.h"
#include "support/scarce_memory.h"
#include "support/testing.h"

TEST(Memory, ItsLackIsAFailureThatTheCallReturns) {
  const TempFolder folder;
  const std::string file = folder / "a-settings-file-of-some-length.ini";
  const std::string copy = folder / "a-copy-of-a-settings-file.ini";
  const std::string tree = folder / "a-folder-that-will-be-removed";
  const std::string longText = "[S]\nk=" + std::string(20'000, 'v') + "\n";
  Spit(file, longText);
  char value[8];
  const auto read = [&] {
    return GetPrivateProfileStringA("S", "k", "", value, sizeof value, file.c_str()) == 20'000;
  };
  EXPECT_GT(FailuresOf(read), 0);
  const auto write = [&] {
    const bool good = WritePrivateProfileStringA("S", "another key", "value", file.c_str()) == 1;
    EXPECT_TRUE(good || errno == ENOMEM);
    return good;
  };
  EXPECT_GT(FailuresOf(write), 5);
  EXPECT_TRUE(Slurp(file) == "[S]\nanother key=value\n" + longText.substr(4));
  EXPECT_GT(FailuresOf([&] { return CopyFile(file.c_str(), copy.c_str(), 0) == 1; }), 0);
  EXPECT_TRUE(Slurp(copy) == Slurp(file));
  const std::string stem = folder / "x";
  const auto find = [&] { return !MakeSureFileCanBeWritten(stem.c_str(), "log.txt").empty(); };
  EXPECT_GT(FailuresOf(find), 0);
  fs::create_directories(tree);
  const std::string inTree = tree + "/x";
  EXPECT_GT(FailuresOf([&] { return RemoveUndeletedDir(inTree.c_str()); }), 0);
  EXPECT_GT(FailuresOf([&] { return RemoveDir(tree.c_str()) == 1; }), 0);
  EXPECT_FALSE(fs::exists(tree));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 4)
      << "the two files, the lock and the log";
}
