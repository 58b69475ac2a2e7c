#include "platform/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>

#include "platform/descriptor.h"
#include "platform/folder.h"
#include "platform/system_time.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

TEST(File, DispositionDecidesAboutOldContentAndNewFiles) {
  const TempFolder folder;
  const struct {
    DWORD disposition, access;
    bool opensMissing;
    const char* kept;
  } cases[] = {
      {OPEN_EXISTING, GENERIC_READ, false, "old"}, {OPEN_EXISTING, GENERIC_WRITE, false, "old"},
      {OPEN_ALWAYS, GENERIC_READ, true, "old"},    {OPEN_ALWAYS, GENERIC_WRITE, true, "old"},
      {CREATE_ALWAYS, GENERIC_READ, true, ""},     {CREATE_ALWAYS, GENERIC_WRITE, true, ""},
      {CREATE_NEW, GENERIC_WRITE, true, ""},
  };
  int number = 0;
  for (const auto& c : cases) {
    const std::string path = folder / std::to_string(number++);
    FileHandle missing = CreateFile(path.c_str(), c.access, 0, nullptr, c.disposition, 0, nullptr);
    EXPECT_EQ(missing != nullptr, c.opensMissing) << number;
    EXPECT_EQ(CloseFile(missing), 1);
    Spit(path, "old");
    FileHandle file = QVCreateFile(path.c_str(), c.access, 0, nullptr, c.disposition, 0, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Slurp(path), c.kept) << number;
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, SEEK_CUR), 0u);
    DWORD written = 0;
    WriteFile(file, "N", 1, &written, nullptr);
    EXPECT_EQ(QVCloseFile(file), 1);
    EXPECT_EQ(Slurp(path).starts_with('N'), c.access == GENERIC_WRITE) << number;
  }
  EXPECT_EQ(CreateFile(folder.path().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            nullptr);
  EXPECT_EQ(GetLastError(), EISDIR);
}

TEST(File, IsReadWholeOrInPart) {
  const TempFolder folder;
  const std::string path = folder / "file";
  Spit(path, "0123456789");
  FileHandle file = CreateFile(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(SetFilePointer(file, -2, nullptr, SEEK_END), 8u);
  EXPECT_EQ(GetFileSize(file, nullptr), 10u);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, SEEK_CUR), 8u);
  for (const DWORD limit : {0u, 4u, 10u, 0xFFFFFFFFu}) {
    unsigned char* buffer = nullptr;
    DWORD length = 99;
    EXPECT_EQ(ReadFileEx(file, limit, &buffer, &length), 0);
    EXPECT_EQ(length, std::min(limit, 10u));
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), std::string("0123456789", length).c_str());
    std::free(buffer);
  }
  CloseFile(file);
  for (const std::string& unreadable : {folder / "missing", folder.path()}) {
    unsigned char other = 0;
    unsigned char* buffer = &other;
    DWORD length = 99;
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
  EXPECT_EQ(GetFileAttributes((folder / "missing").c_str()), -1);
  EXPECT_EQ(GetFileAttributes(folder.path().c_str()), 16);
  EXPECT_EQ(GetFileAttributes(file.c_str()), 0);

  const timespec times[] = {{1, 0}, {0x1'2345'6789, 42}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  _FILETIME written{7, 7};
  EXPECT_EQ(GetFileTime((folder / "missing").c_str(), nullptr, nullptr, &written), 1);
  EXPECT_EQ(written.dwLowDateTime, 7u);
  EXPECT_EQ(GetFileTime(file.c_str(), nullptr, nullptr, &written), 1);
  EXPECT_EQ(written.dwLowDateTime, 0x2345'6789u);
  EXPECT_EQ(written.dwHighDateTime, 42u);

  const std::string no = folder / "no.such/";
  EXPECT_EQ(MakeSureFileCanBeWritten(folder.path().c_str(), "a.log"), folder / "a.log");
  EXPECT_TRUE(fs::exists(folder / "a.log"));
  EXPECT_EQ(MakeSureFileCanBeWritten(no.c_str(), "log"), no + "log");
  const std::string other = MakeSureFileCanBeWritten(no.c_str(), "qvs.1.log");
  ASSERT_TRUE(other.starts_with(no + "qvs.1(") && other.ends_with(").log")) << other;
  const std::string digits = other.substr(no.size() + 6, other.size() - no.size() - 11);
  EXPECT_TRUE(!digits.empty() && digits.find_first_not_of("0123456789") == digits.npos) << other;
}

TEST(Folder, RemovalEndsEarlyAfterASubfolderAndNeverFollowsLinks) {
  const TempFolder folder;
  EXPECT_EQ(CreateDirectory((folder / "no/sub").c_str(), nullptr), 0);
  for (const char* name : {"two", "two/a", "two/b", "files", "outside"}) {
    EXPECT_EQ(CreateDirectory((folder / name).c_str(), nullptr), 1);
  }
  EXPECT_EQ(CreateDirectory((folder / "two").c_str(), nullptr), 0) << "exists";
  Spit(folder / "two/a/file", "");
  Spit(folder / "two/b/file", "");
  EXPECT_EQ(RemoveDir((folder / "two").c_str()), 1);
  EXPECT_NE(fs::exists(folder / "two/a"), fs::exists(folder / "two/b")) << "one is removed";
  EXPECT_EQ(RemoveDir((folder / "two").c_str()), 1);
  EXPECT_TRUE(fs::is_empty(folder / "two"));
  EXPECT_EQ(RemoveDir((folder / "two").c_str()), 1);
  EXPECT_FALSE(fs::exists(folder / "two"));
  EXPECT_EQ(RemoveDir((folder / "two").c_str()), 0);

  Spit(folder / "outside/precious", "");
  Spit(folder / "files/file", "");
  fs::create_symlink("../outside", folder / "files/link");
  fs::create_symlink("gone", folder / "files/dangling");
  EXPECT_EQ(RemoveDir((folder / "files/").c_str()), 1);
  EXPECT_FALSE(fs::exists(folder / "files"));
  fs::create_symlink("outside", folder / "link");
  EXPECT_EQ(RemoveDir((folder / "link/").c_str()), 1);
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_TRUE(fs::exists(folder / "outside/precious"));
  EXPECT_EQ(RemoveDir((folder / "outside/precious").c_str()), 0) << "a file";
}

TEST(Folder, SweepRemovesOldSiblingsOnly) {
  const TempFolder folder;
  const timespec old{std::time(nullptr) - 400L * 24 * 3600, 0};
  const timespec epoch{};
  const auto age = [&](const std::string& path, const timespec& time) {
    const timespec times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  };
  for (const char* name : {"fresh", "old", "epoch", "target"}) fs::create_directory(folder / name);
  Spit(folder / "old/content", "");
  Spit(folder / "oldfile", "");
  fs::create_directory_symlink("target", folder / "oldlink");
  for (const char* name : {"old", "oldfile", "oldlink"}) age(folder / name, old);
  age(folder / "epoch", epoch);
  EXPECT_FALSE(RemoveUndeletedDir("noparent/"));
  EXPECT_TRUE(RemoveUndeletedDir((folder / "no/such").c_str()));
  EXPECT_TRUE(RemoveUndeletedDir((folder / "any//").c_str()));
  EXPECT_FALSE(fs::exists(folder / "old"));
  for (const char* name : {"fresh", "epoch", "target", "oldfile", "oldlink"}) {
    EXPECT_TRUE(fs::exists(folder / name)) << name;
  }
  DeleteFileOrDir((folder / "oldlink").c_str());
  DeleteFileOrDir((folder / "oldfile").c_str());
  DeleteFileOrDir((folder / "fresh").c_str());
  DeleteFileOrDir((folder / "missing").c_str());
  EXPECT_TRUE(fs::exists(folder / "target"));
  for (const char* name : {"oldlink", "oldfile", "fresh"}) EXPECT_FALSE(fs::exists(folder / name));
}
