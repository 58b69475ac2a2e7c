#include "platform/file.h"

#include <fstream>

#include "platform/folder_walk.h"
#include "support/testing.h"

TEST(File, CopyLeavesALibraryThatIsInUseWhole) {
  const TempFolder folder;
  const std::string target = folder / "target";
  Spit(folder / "source", "new");
  Spit(target, "old and longer");
  std::ifstream inUse(target);
  EXPECT_EQ(CopyFile((folder / "source").c_str(), target.c_str(), 1), 1);
  EXPECT_EQ(Slurp(target), "new");
  std::string line;
  EXPECT_TRUE(std::getline(inUse, line));
  EXPECT_EQ(line, "old and longer");
}

TEST(Folder, AWalkStaysInItsFolderWhateverTakesItsPlace) {
  const TempFolder temp;
  for (const char* name : {"tree", "outside"}) {
    fs::create_directory(temp / name);
    Spit(temp / name + "/precious", "");
  }
  const FolderWalk above(temp.path().c_str());
  const FolderWalk walk(above, "tree");
  fs::rename(temp / "tree", temp / "moved");
  fs::create_symlink("outside", temp / "tree");
  EXPECT_TRUE(walk.RemoveFile("precious"));
  EXPECT_FALSE(walk.RemoveSelf()) << "a link now";
  EXPECT_TRUE(fs::is_empty(temp / "moved"));
  EXPECT_TRUE(fs::exists(temp / "outside/precious") && fs::is_symlink(temp / "tree"));
  EXPECT_FALSE(FolderWalk(above, "tree") || above.IsFolder("tree")) << "a link is refused";
}
