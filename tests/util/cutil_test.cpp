#include "util/cutil.h"

#include "support/testing.h"

namespace {

class CUtilTest : public ::testing::Test {
 protected:
  const TempFolder temp_, elsewhere_;
};

TEST_F(CUtilTest, DeletesATreeAndNothingThatItPointsTo) {
  Spit(elsewhere_ / "kept", "x");
  fs::create_directories(temp_ / "tree/sub/deep");
  Spit(temp_ / "tree/sub/deep/file", "x");
  fs::create_directory_symlink(elsewhere_.path(), temp_ / "tree/link");
  fs::create_symlink("nowhere", temp_ / "tree/dangling");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp_ / "tree/").c_str(), true));
  EXPECT_FALSE(fs::exists(temp_ / "tree"));
  EXPECT_EQ(Slurp(elsewhere_ / "kept"), "x");

  fs::create_directory_symlink(elsewhere_.path(), temp_ / "link");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp_ / "link/\\").c_str(), true));
  EXPECT_FALSE(fs::is_symlink(temp_ / "link"));
  EXPECT_TRUE(fs::is_empty(elsewhere_.path())) << "at the top a link stands for its folder";
}

TEST_F(CUtilTest, CopiesAFolderButNotRoundALoopOfLinks) {
  fs::create_directories(temp_ / "from/sub");
  Spit(temp_ / "from/sub/deep", "x");
  fs::create_directory_symlink("..", temp_ / "from/sub/up");
  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp_ / "from/").c_str(), (temp_ / "to").c_str(), true));
  EXPECT_EQ(Slurp(temp_ / "to/sub/deep"), "x");
  EXPECT_FALSE(fs::exists(temp_ / "to/sub/up"));
}

}  // namespace
