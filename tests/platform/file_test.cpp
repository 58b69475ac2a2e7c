#include "platform/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>

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
      EXPECT_EQ(SetFilePointer(file, 0, nullptr, SEEK_CUR), 0u);
      DWORD written = 0;
      WriteFile(file, "N", 1, &written, nullptr);
      EXPECT_EQ(CloseFile(file), 1);
      EXPECT_EQ(Slurp(path).starts_with('N'), access == GENERIC_WRITE) << path;
      EXPECT_EQ(Open(folder / "pipe", access, c.disposition), nullptr);
      EXPECT_EQ(Open(folder.path(), access, c.disposition), nullptr);
    }
  }
}

TEST(File, IsReadWholeOrInPart) {
  const TempFolder folder;
  const std::string path = folder / "file";
  Spit(path, "0123456789");
  FileHandle file = Open(path, GENERIC_READ, OPEN_EXISTING);
  EXPECT_EQ(SetFilePointer(file, -2, nullptr, SEEK_END), 8u);
  EXPECT_EQ(GetFileSize(file, nullptr), 10u);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, SEEK_CUR), 8u);
  unsigned char* buffer = nullptr;
  DWORD length = 99;
  for (const DWORD limit : {0u, 4u, 10u, 0xFFFFFFFFu}) {
    EXPECT_EQ(ReadFileEx(file, limit, &buffer, &length), 0);
    EXPECT_EQ(length, std::min(limit, 10u));
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), std::string("0123456789", length).c_str());
    std::free(buffer);
  }
  CloseFile(file);
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  for (const std::string& unreadable : {folder / "missing", folder / "pipe", folder.path()}) {
    length = 99;
    EXPECT_EQ(ReadFileByName(unreadable.c_str(), &buffer, &length), 0);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(length, 0u);
  }
}

TEST(File, CopyReplacesInOneStep) {
  const TempFolder folder;
  const std::string source = folder / "source";
  const std::string target = folder / "target";
  EXPECT_EQ(CopyFile(source.c_str(), target.c_str(), 0), 1) << "nothing to copy";
  Spit(source, "");
  EXPECT_EQ(CopyFile(source.c_str(), target.c_str(), 0), 0);
  EXPECT_FALSE(fs::exists(target));

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

TEST(File, AttributesTimesAndWritableNames) {
  const TempFolder folder;
  const std::string file = folder / "file";
  Spit(file, "x");
  EXPECT_EQ(GetFileAttributes(""), -1);
  EXPECT_EQ(GetFileAttributes(folder.path().c_str()), 16);
  EXPECT_EQ(GetFileAttributes(file.c_str()), 0);
  const timespec times[] = {{1, 0}, {0x1'2345'6789, 42}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  _FILETIME written{};
  for (const std::string& path : {file, folder / "missing"}) {
    EXPECT_EQ(GetFileTime(path.c_str(), nullptr, nullptr, &written), 1);
    EXPECT_EQ(written.dwLowDateTime, 0x2345'6789u);
    EXPECT_EQ(written.dwHighDateTime, 42u);
  }

  const std::string no = folder / "no.such/";
  EXPECT_EQ(MakeSureFileCanBeWritten(folder.path().c_str(), "a.log"), folder / "a.log");
  EXPECT_TRUE(fs::exists(folder / "a.log"));
  EXPECT_EQ(MakeSureFileCanBeWritten(no.c_str(), "log"), no + "log");
  const std::string other = MakeSureFileCanBeWritten(no.c_str(), "qvs.1.log");
  EXPECT_TRUE(std::regex_match(other.substr(no.size()), std::regex(R"(qvs\.1\(\d+\)\.log)")))
      << other;
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
  EXPECT_EQ(CreateDirectory((temp_ / "no/sub").c_str(), nullptr), 0);
  EXPECT_EQ(CreateDirectory((temp_ / "tree").c_str(), nullptr), 0) << "exists";
  for (const char* name : {"two", "two/a", "two/b"}) {
    EXPECT_EQ(CreateDirectory((temp_ / name).c_str(), nullptr), 1);
  }
  EXPECT_EQ(Remove("two"), 1);
  EXPECT_NE(Exists("two/a"), Exists("two/b")) << "one is removed";
  EXPECT_EQ(Remove("two"), 1);
  EXPECT_TRUE(fs::is_empty(temp_ / "two"));
  EXPECT_EQ(Remove("two//"), 1);
  EXPECT_FALSE(Exists("two"));
  for (const char* name : {"two", "tree/file", "tree/dangling"}) EXPECT_EQ(Remove(name), 0) << name;
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
  EXPECT_FALSE(RemoveUndeletedDir("noparent/") || RemoveUndeletedDir(nullptr));
  EXPECT_TRUE(RemoveUndeletedDir((temp_ / "no/such").c_str()));
  EXPECT_TRUE(RemoveUndeletedDir((temp_ / "any//").c_str()));
  EXPECT_FALSE(Exists("old"));
  for (const char* name : {"tree", "epoch", "outside", "oldfile", "link"}) {
    EXPECT_TRUE(Exists(name)) << name;
  }
  for (const char* name : {"link", "oldfile", "tree", "missing"}) {
    DeleteFileOrDir((temp_ / name).c_str());
    EXPECT_FALSE(Exists(name)) << name;
  }
  EXPECT_TRUE(Exists("outside/precious"));
}
