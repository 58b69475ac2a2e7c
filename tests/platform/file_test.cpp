#include "platform/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>

#include "platform/descriptor.h"
#include "platform/folder.h"
#include "platform/folder_walk.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

FileHandle Open(const std::string& path, DWORD access, DWORD disposition) {
  return CreateFile(path.c_str(), access, 0, nullptr, disposition, 0, nullptr);
}

TEST(File, DispositionDecidesAboutOldContentAndNewFiles) {
  const TempFolder folder;
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  const struct {
    DWORD disposition;
    bool opensMissing;
    const char* kept;
  } cases[] = {{OPEN_EXISTING, false, "old"},
               {OPEN_ALWAYS, true, "old"},
               {CREATE_ALWAYS, true, ""},
               {CREATE_NEW, true, ""}};
  for (const auto& c : cases) {
    for (const DWORD access : {GENERIC_READ, GENERIC_WRITE}) {
      const std::string path = folder / std::to_string(c.disposition * 2 + access % 3);
      FileHandle missing = Open(path, access, c.disposition);
      EXPECT_EQ(missing != nullptr, c.opensMissing) << path;
      EXPECT_EQ(CloseFile(missing), 1);
      Spit(path, "old");
      FileHandle file = Open(path, access, c.disposition);
      ASSERT_NE(file, nullptr);
      EXPECT_EQ(Slurp(path), c.kept) << path;
      DWORD written = 0;
      WriteFile(file, "N", 1, &written, nullptr);
      EXPECT_EQ(CloseFile(file), 1);
      EXPECT_EQ(Slurp(path).starts_with('N'), access == GENERIC_WRITE) << path;
      EXPECT_EQ(Open(folder / "pipe", access, c.disposition), nullptr);
    }
  }
}

TEST(File, CopyReplacesInOneStep) {
  const TempFolder folder;
  const std::string source = folder / "source";
  const std::string target = folder / "target";
  Spit(source, "new");
  Spit(target, std::string(8192, 'o'));
  const Descriptor open(::open(target.c_str(), O_RDONLY | O_CLOEXEC));
  void* mapped = ::mmap(nullptr, 8192, PROT_READ, MAP_SHARED, open.get(), 0);
  ASSERT_NE(mapped, MAP_FAILED);
  EXPECT_EQ(CopyFile(source.c_str(), target.c_str(), 1), 1);
  EXPECT_EQ(Slurp(target), "new");
  EXPECT_EQ(static_cast<const char*>(mapped)[8191], 'o') << "a mapped library must stay whole";
  ::munmap(mapped, 8192);
  EXPECT_EQ(CopyFile(source.c_str(), (folder / "no/target").c_str(), 0), 0);
}

class Folder : public ::testing::Test {
 protected:
  /// tree/ with a file, a subfolder and links out of it; outside/precious; link to outside.
  Folder() {
    for (const char* name : {"tree", "outside"}) fs::create_directory(temp_ / name);
    for (const char* name : {"tree/file", "outside/precious"}) Spit(temp_ / name, "");
    fs::create_symlink("../outside", temp_ / "tree/link");
    fs::create_symlink("gone", temp_ / "tree/dangling");
    fs::create_symlink("outside", temp_ / "link");
  }
  BOOL Remove(const char* name) { return RemoveDir((temp_ / name).c_str()); }
  bool Exists(const char* name) { return fs::exists(fs::symlink_status(temp_ / name)); }

  TempFolder temp_;
};

TEST_F(Folder, RemovalEndsEarlyAfterASubfolder) {
  for (const char* name : {"two", "two/a", "two/b"}) {
    EXPECT_EQ(CreateDirectory((temp_ / name).c_str(), nullptr), 1);
  }
  EXPECT_EQ(Remove("two"), 1);
  EXPECT_NE(Exists("two/a"), Exists("two/b")) << "one is removed";
  EXPECT_EQ(Remove("two"), 1);
  EXPECT_TRUE(fs::is_empty(temp_ / "two"));
  EXPECT_EQ(Remove("two//"), 1);
  EXPECT_FALSE(Exists("two"));
}

TEST_F(Folder, RemovalFollowsALinkAtTheTopOnly) {
  EXPECT_EQ(Remove("tree"), 1);
  EXPECT_FALSE(Exists("tree"));
  EXPECT_TRUE(Exists("outside/precious"));
  EXPECT_EQ(Remove("link/"), 0) << "a link is no folder to remove at the end";
  EXPECT_TRUE(Exists("link"));
  EXPECT_TRUE(fs::is_empty(temp_ / "outside"));
}

TEST_F(Folder, AWalkStaysInItsFolderWhateverTakesItsPlace) {
  const std::string tree = temp_ / "tree";
  const FolderWalk above(temp_.path().c_str());
  const FolderWalk walk(above, "tree");
  Spit(temp_ / "tree/precious", "");
  fs::rename(tree, temp_ / "moved");
  fs::create_symlink("outside", tree);
  EXPECT_TRUE(walk.RemoveFile("precious"));
  EXPECT_FALSE(walk.RemoveSelf()) << "a link now";
  EXPECT_FALSE(Exists("moved/precious"));
  EXPECT_TRUE(Exists("outside/precious") && Exists("tree"));
  EXPECT_FALSE(FolderWalk(above, "tree")) << "a link is refused";
  EXPECT_FALSE(above.IsFolder("tree"));
}

TEST_F(Folder, SweepRemovesOldSiblingsOnly) {
  const timespec old{std::time(nullptr) - 400L * 24 * 3600, 0};
  const auto age = [&](const char* name, const timespec& time) {
    const timespec times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, (temp_ / name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  };
  for (const char* name : {"old", "epoch"}) fs::create_directory(temp_ / name);
  for (const char* name : {"old/content", "oldfile"}) Spit(temp_ / name, "");
  for (const char* name : {"old", "oldfile", "link"}) age(name, old);
  age("epoch", timespec{});
  EXPECT_TRUE(RemoveUndeletedDir((temp_ / "any//").c_str()));
  EXPECT_FALSE(Exists("old"));
  for (const char* name : {"tree", "epoch", "outside", "oldfile", "link"}) {
    EXPECT_TRUE(Exists(name)) << name;
  }
  DeleteFileOrDir((temp_ / "link").c_str());
  EXPECT_FALSE(Exists("link"));
  EXPECT_TRUE(Exists("outside/precious"));
}
