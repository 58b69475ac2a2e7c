#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <fstream>

#include "platform/folder.h"
#include "platform/folder_walk.h"
#include "support/testing.h"

FileHandle Open(const std::string& path, DWORD access, DWORD disposition) {
  return CreateFile(path.c_str(), access, 0, nullptr, disposition, 0, nullptr);
}

TEST(File, DispositionDecidesAboutOldContentAndNewFiles) {
  const TempFolder folder;
  const std::string path = folder / "file", pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const auto& [disposition, opensMissing, kept] : Table<DWORD, bool, const char*>{
           {OPEN_EXISTING, false, "old"}, {OPEN_ALWAYS, true, "old"}, {CREATE_ALWAYS, true, ""}}) {
    for (const DWORD access : {GENERIC_READ, GENERIC_WRITE}) {
      fs::remove(path);
      FileHandle missing = Open(path, access, disposition);
      EXPECT_EQ(missing != nullptr, opensMissing) << disposition;
      CloseFile(missing);
      Spit(path, "old");
      FileHandle file = Open(path, access, disposition);
      EXPECT_EQ(Slurp(path), kept) << disposition;
      WriteFile(file, "N", 1, nullptr, nullptr);
      CloseFile(file);
      EXPECT_EQ(Slurp(path).starts_with('N'), access == GENERIC_WRITE) << disposition;
      EXPECT_EQ(Open(pipe, access, disposition), nullptr);
    }
  }
}

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

class Folder : public ::testing::Test {
 protected:
  /// tree/ with a file and links out of it; outside/precious; link to outside.
  Folder() {
    for (const char* name : {"tree", "outside"}) fs::create_directory(temp_ / name);
    for (const char* name : {"tree/file", "outside/precious"}) Spit(temp_ / name, "");
    fs::create_symlink("../outside", temp_ / "tree/link");
    fs::create_symlink("outside", temp_ / "link");
  }
  BOOL Remove(const char* name) { return RemoveDir((temp_ / name).c_str()); }
  bool Exists(const char* name) { return fs::exists(fs::symlink_status(temp_ / name)); }

  TempFolder temp_;
};

TEST_F(Folder, RemovalEndsEarlyAfterASubfolderAndFollowsALinkAtTheTopOnly) {
  for (const char* name : {"two/a", "two/b"}) fs::create_directories(temp_ / name);
  EXPECT_EQ(Remove("two"), 1);
  EXPECT_NE(Exists("two/a"), Exists("two/b")) << "one is removed";
  EXPECT_EQ(Remove("two") + Remove("two//"), 2);
  EXPECT_FALSE(Exists("two"));

  EXPECT_EQ(Remove("tree"), 1);
  EXPECT_FALSE(Exists("tree"));
  EXPECT_TRUE(Exists("outside/precious"));
  EXPECT_EQ(Remove("link/"), 0) << "a link is no folder to remove at the end";
  EXPECT_TRUE(fs::is_empty(temp_ / "outside"));
}

TEST_F(Folder, AWalkStaysInItsFolderWhateverTakesItsPlace) {
  const FolderWalk above(temp_.path().c_str());
  const FolderWalk walk(above, "tree");
  Spit(temp_ / "tree/precious", "");
  fs::rename(temp_ / "tree", temp_ / "moved");
  fs::create_symlink("outside", temp_ / "tree");
  EXPECT_TRUE(walk.RemoveFile("precious"));
  EXPECT_FALSE(walk.RemoveSelf()) << "a link now";
  EXPECT_FALSE(Exists("moved/precious"));
  EXPECT_TRUE(Exists("outside/precious") && Exists("tree"));
  EXPECT_FALSE(FolderWalk(above, "tree") || above.IsFolder("tree")) << "a link is refused";
}

TEST_F(Folder, SweepRemovesOldSiblingsOnly) {
  const std::time_t longAgo = std::time(nullptr) - 400L * 24 * 3600;
  for (const char* name : {"old", "epoch"}) fs::create_directory(temp_ / name);
  for (const char* name : {"old/content", "oldfile"}) Spit(temp_ / name, "");
  for (const char* name : {"old", "oldfile", "link", "epoch"}) {
    const timespec changed{name == std::string("epoch") ? 0 : longAgo, 0};
    const timespec times[] = {changed, changed};
    ASSERT_EQ(::utimensat(AT_FDCWD, (temp_ / name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  EXPECT_TRUE(RemoveUndeletedDir((temp_ / "any//").c_str()));
  DeleteFileOrDir((temp_ / "link").c_str());
  EXPECT_FALSE(Exists("link"));
  EXPECT_FALSE(Exists("old"));
  for (const char* name : {"tree", "epoch", "outside/precious", "oldfile"}) {
    EXPECT_TRUE(Exists(name)) << name;
  }
}
