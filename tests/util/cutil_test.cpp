#include "util/cutil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

TEST(CUtil, DeletesATreeAndNothingThatItPointsTo) {
  const TempFolder temp;
  const TempFolder elsewhere;
  Spit(elsewhere / "kept", "x");
  fs::create_directories(temp / "tree/sub/deep");
  Spit(temp / "tree/sub/deep/file", "x");
  fs::create_directory_symlink(elsewhere.path(), temp / "tree/link");
  fs::create_symlink("nowhere", temp / "tree/dangling");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "tree/").c_str(), true));
  EXPECT_FALSE(fs::exists(temp / "tree"));
  EXPECT_EQ(Slurp(elsewhere / "kept"), "x");

  // A link at the top stands for the folder that it leads to.
  fs::create_directory_symlink(elsewhere.path(), temp / "link");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "link/").c_str(), false));
  EXPECT_TRUE(fs::is_symlink(temp / "link"));
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));
  Spit(elsewhere / "more", "x");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "link/\\").c_str(), true));
  EXPECT_FALSE(fs::is_symlink(temp / "link"));
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));

  EXPECT_FALSE(CUtil::DeleteDirectory((temp / "missing").c_str(), true));
}

TEST(CUtil, CopiesAFolderWithOrWithoutItsSubfolders) {
  const TempFolder temp;
  fs::create_directories(temp / "from/sub/empty");
  Spit(temp / "from/top", "1");
  Spit(temp / "from/sub/deep", "2");
  fs::create_symlink("deep", temp / "from/sub/file link");
  for (const char* loop : {"from/sub/up", "from/sub/up again"}) {
    fs::create_directory_symlink("..", temp / loop);
  }
  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp / "from/").c_str(), (temp / "flat/").c_str(), false));
  EXPECT_EQ(Slurp(temp / "flat/top"), "1");
  EXPECT_FALSE(fs::exists(temp / "flat/sub"));

  fs::create_directories(temp / "all/sub");
  Spit(temp / "all/sub/deep", "old");
  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp / "from").c_str(), (temp / "all").c_str(), true));
  EXPECT_EQ(Slurp(temp / "all/sub/deep"), "2");
  EXPECT_EQ(Slurp(temp / "all/sub/file link"), "2");
  EXPECT_FALSE(fs::is_symlink(temp / "all/sub/file link"));
  EXPECT_FALSE(fs::exists(temp / "all/sub/up"));
}

TEST(CUtil, SavesBytesWithTheirFolders) {
  const TempFolder temp;
  const auto save = [&](const std::string& name, const std::string& data, unsigned int offset) {
    return CUtil::SaveDataToFileInner((temp / name).c_str(),
                                      reinterpret_cast<const unsigned char*>(data.data()),
                                      static_cast<unsigned int>(data.size()), offset);
  };
  EXPECT_EQ(save("a/b/file", "hello", 0), 0);
  EXPECT_EQ(save("a/b/file", "LP", 3), 0);
  EXPECT_EQ(Slurp(temp / "a/b/file"), "helLP");
  EXPECT_EQ(save("missing", "x", 3), 16);
  EXPECT_FALSE(fs::exists(temp / "missing"));
  EXPECT_EQ(save("a/b/file/below", "x", 0), 16);
  ASSERT_EQ(::mkfifo((temp / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(save("pipe", "x", 0), 16);
  EXPECT_TRUE(fs::is_fifo(temp / "pipe")) << "only a failed write deletes";
}

}  // namespace
