#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <regex>

#include "support/testing.h"

class FileCalls : public ::testing::Test {
 protected:
  static FileHandle Open(const std::string& name, DWORD disposition = OPEN_EXISTING,
                         DWORD access = GENERIC_READ | GENERIC_WRITE) {
    return CreateFile(name.c_str(), access, 0, nullptr, disposition, 0, nullptr);
  }
  static std::string Rest(FileHandle file) {
    std::string text(100, '?');
    DWORD read = 0;
    EXPECT_EQ(ReadFile(file, text.data(), 100, &read, nullptr), 1);
    return text.substr(0, read);
  }
  std::ptrdiff_t Entries() const {
    return std::distance(fs::recursive_directory_iterator(folder_.path()), {});
  }
  bool Exists(const char* name) const { return fs::exists(fs::symlink_status(folder_ / name)); }
  void Make(const std::string& name) const {
    fs::create_directories((folder_ / name).substr(0, (folder_ / name).rfind('/')));
    if (!name.ends_with('/')) Spit(folder_ / name, "x");
  }

  const TempFolder folder_;
  const std::string file_ = folder_ / "file";
};

TEST_F(FileCalls, TheDispositionDecidesWhatIsOpened) {
  constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
  for (const auto& [disposition, access, makes, kept] :
       Table<DWORD, DWORD, bool, std::string>{{OPEN_EXISTING, GENERIC_READ, false, "older"},
                                              {OPEN_EXISTING, kBoth, false, "older"},
                                              {OPEN_ALWAYS, GENERIC_READ, true, "older"},
                                              {OPEN_ALWAYS, kBoth, true, "older"},
                                              {CREATE_ALWAYS, GENERIC_READ, true, ""},
                                              {CREATE_NEW, GENERIC_WRITE, true, ""}}) {
    SCOPED_TRACE(disposition);
    fs::remove(file_);
    FileHandle file = Open(file_, disposition, access);
    EXPECT_EQ(file != nullptr, makes);
    EXPECT_EQ(CloseFile(file), 1);
    EXPECT_EQ(fs::exists(file_), makes);

    Spit(file_, "older");
    file = QVCreateFile(file_.c_str(), access, 0, nullptr, disposition, 0, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Rest(file), kept);
    EXPECT_EQ(::fcntl(::fileno(file), F_GETFD), FD_CLOEXEC);
    const bool writes = (access & GENERIC_WRITE) != 0;
    DWORD written = 7;
    SetFilePointer(file, 0, nullptr, SEEK_SET);
    EXPECT_EQ(WriteFile(file, "new", 3, &written, nullptr), writes ? 1 : 0);
    EXPECT_EQ(written, writes ? 3u : 0u);
    EXPECT_EQ(QVCloseFile(file), 1);
    EXPECT_EQ(Slurp(file_), !writes ? kept : kept.empty() ? "new" : "newer");
  }
}

TEST_F(FileCalls, WhatIsNoFileIsNotOpened) {
  Spit(file_, "x");
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  fs::create_directory_symlink(".", folder_ / "link");
  for (const char* name : {"", "pipe", "link", "file/x", "none/x"}) {
    for (const DWORD disposition : {CREATE_ALWAYS, OPEN_EXISTING, OPEN_ALWAYS}) {
      for (const DWORD access : {GENERIC_READ, GENERIC_WRITE}) {
        EXPECT_EQ(Open(folder_ / name, disposition, access), nullptr) << name << disposition;
      }
    }
    unsigned char* buffer = nullptr;
    DWORD length = 7;
    EXPECT_EQ(ReadFileByName((folder_ / name).c_str(), &buffer, &length), 0) << name;
    EXPECT_TRUE(buffer == nullptr && length == 0);
  }
  EXPECT_EQ(CreateFile(nullptr, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), nullptr);
}

TEST_F(FileCalls, MoveAboutInAFile) {
  Spit(file_, "0123456789");
  FileHandle file = Open(file_);
  DWORD high = 7;
  for (const auto& [offset, whence, position, rest] :
       Table<int, int, DWORD, const char*>{{4, SEEK_SET, 4, "456789"},
                                           {-3, SEEK_END, 7, "789"},
                                           {-8, SEEK_CUR, 2, "23456789"},
                                           {-1, SEEK_SET, 10, ""}}) {
    EXPECT_EQ(SetFilePointer(file, offset, nullptr, whence), position) << offset;
    EXPECT_EQ(GetFileSize(file, &high), 10u);
    EXPECT_EQ(Rest(file), rest) << "the size is told at any position";
  }
  CloseFile(file);
  fs::resize_file(file_, (5ull << 32) + 3);
  file = Open(file_);
  EXPECT_EQ(GetFileSize(file, &high), 3u);
  EXPECT_EQ(high, 7u);
  CloseFile(file);

  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  FileHandle pipe = ::fdopen(ends[0], "rb"), sink = ::fdopen(ends[1], "wb");
  DWORD count = 7;
  char byte = 0;
  unsigned char* block = nullptr;
  EXPECT_EQ(ReadFile(sink, &byte, 1, &count, nullptr), 0) << "it is there to be written";
  CloseFile(sink);
  EXPECT_EQ(GetFileSize(pipe, nullptr), 0xFFFFFFFF);
  EXPECT_EQ(ReadFileEx(pipe, 10, &block, &count), 1);
  EXPECT_EQ(ReadFile(pipe, &byte, 1, &count, nullptr), 1) << "the end is no error";
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(ReadFile(nullptr, nullptr, 1, &count, nullptr), 0);
  EXPECT_EQ(WriteFile(nullptr, "x", 1, &count, nullptr), 0);
  EXPECT_EQ(SetFilePointer(nullptr, 0, nullptr, SEEK_SET), 0xFFFFFFFF);
  EXPECT_EQ(GetFileSize(nullptr, nullptr), 0u);
  for (FileHandle closed : {pipe, static_cast<FileHandle>(nullptr)})
    EXPECT_EQ(CloseFile(closed), 1);
  FileHandle full = Open("/dev/full");
  EXPECT_EQ(WriteFile(full, "x", 1, nullptr, nullptr), 1) << "the stream holds it back";
  EXPECT_EQ(CloseFile(full), 0);
}

TEST_F(FileCalls, ReadAFileIntoOneBlock) {
  const std::string large = std::string(3'000'000, 'a') + "end";
  for (const auto& [content, limit, read] :
       Table<std::string, DWORD, std::string>{{"0123456789", 10, "0123456789"},
                                              {"0123456789", 9, "012345678"},
                                              {"0123456789", 0, ""},
                                              {"", 5, ""},
                                              {large, 0xFFFFFFFF, large}}) {
    Spit(file_, content);
    FileHandle file = Open(file_);
    SetFilePointer(file, 5, nullptr, SEEK_SET);
    unsigned char* block = nullptr;
    DWORD length = 0;
    const auto holds = [&](const std::string& expected) {
      const bool same = length == expected.size() &&
                        std::memcmp(block, expected.c_str(), length + 1) == 0;  // with its NUL
      std::free(block);
      return same;
    };
    EXPECT_TRUE(ReadFileEx(file, limit, &block, &length) == 0 && holds(read)) << limit;
    EXPECT_TRUE(ReadFile(file, &block, &length) == 0 && holds(content)) << limit;
    EXPECT_TRUE(ReadFileByNameEx(file_.c_str(), limit, &block, &length) == 1 && holds(read));
    EXPECT_TRUE(ReadFileByName(file_.c_str(), &block, &length) == 1 && holds(content)) << limit;
    CloseFile(file);
  }
  unsigned char* block = nullptr;
  DWORD length = 7;
  EXPECT_EQ(ReadFileEx(nullptr, 5, &block, &length), 1);
  EXPECT_EQ(length, 0u);
}

TEST_F(FileCalls, TellAndMakeFilesAndFolders) {
  Make("file");
  fs::create_directory_symlink(".", folder_ / "link");
  fs::create_symlink("none", folder_ / "dangling");
  for (const auto& [name, attributes, made, deleted] :
       Table<const char*, int, int, int>{{"none/x", -1, 0, 0},
                                         {"new", -1, 1, 0},
                                         {"new", 16, 0, 0},
                                         {"link", 16, 0, 1},
                                         {"dangling", -1, 0, 1},
                                         {"file", 0, 0, 1},
                                         {"file", -1, 1, 0}}) {
    const std::string path = folder_ / name;
    EXPECT_EQ(GetFileAttributes(path.c_str()), attributes) << name;
    EXPECT_EQ(CreateDirectory(path.c_str(), nullptr), made) << name;
    EXPECT_EQ(DeleteFile(path.c_str()), deleted) << name;
  }
  EXPECT_EQ(GetFileAttributes("") + GetFileAttributes(nullptr), -2);
  EXPECT_EQ(SetFileAttributes("none", FILE_ATTRIBUTE_READONLY), 1);

  const timespec times[] = {{1, 1}, {(1ll << 32) + 5, 678}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder_ / "new").c_str(), times, 0), 0);
  for (const auto& [name, low, high] :
       Table<const char*, std::uint32_t, std::uint32_t>{{"new", 5, 678}, {"none", 7, 7}}) {
    _FILETIME other{7, 7}, written{7, 7};
    EXPECT_EQ(GetFileTime((folder_ / name).c_str(), &other, &other, &written), 1);
    EXPECT_EQ(std::pair(written.dwLowDateTime, written.dwHighDateTime), std::pair(low, high));
    EXPECT_EQ(other.dwLowDateTime + other.dwHighDateTime, 14u);
  }
  EXPECT_EQ(GetFileTime(nullptr, nullptr, nullptr, nullptr), 1);
}

TEST_F(FileCalls, FindANameThatCanBeWritten) {
  const std::string dotted = folder_ / "a.b/";
  for (const char* inTheWay : {"x.log", "a.b.log", "plain"})
    fs::create_directories(dotted + inTheWay);
  Spit(dotted + "old.log", "kept");
  for (const auto& [folder, name, found] : Table<std::string, const char*, std::string>{
           {dotted, "new.log", "new[.]log"},
           {dotted, "old.log", "old[.]log"},
           {dotted, "x.log", R"(x\([0-9]+\)[.]log)"},
           {dotted, "a.b.log", R"(a[.]b\([0-9]+\)[.]log)"},
           {dotted, "plain", "plain"},
           {folder_ / "none/", "qvs.log", R"(qvs\([0-9]+\)[.]log)"}}) {
    const std::string path = MakeSureFileCanBeWritten(folder.c_str(), name);
    ASSERT_TRUE(path.starts_with(folder)) << path;
    EXPECT_TRUE(std::regex_match(path.substr(folder.size()), std::regex(found))) << path;
  }
  EXPECT_TRUE(fs::exists(dotted + "new.log"));
  EXPECT_EQ(Slurp(dotted + "old.log"), "kept");
}

TEST_F(FileCalls, RemoveAFolderUpToItsFirstSubfolder) {
  for (const auto& [what, content, result, left] :
       Table<const char*, std::vector<std::string>, int, std::ptrdiff_t>{
           {"nothing there", {}, 0, 0},
           {"a file", {"f"}, 0, 1},
           {"files", {"f/a", "f/b"}, 1, 0},
           {"nothing in it", {"f/"}, 1, 0},
           {"subfolders", {"f/a/", "f/b/"}, 1, 2},
           {"a deep one", {"f/a/b/x"}, 1, 2}}) {
    for (const std::string& name : content) Make(name);
    EXPECT_EQ(RemoveDir((folder_ / "f//").c_str()), result) << what;
    EXPECT_EQ(Entries(), left) << what;
    fs::remove_all(folder_ / "f");
  }
  EXPECT_EQ(RemoveDir("") + RemoveDir(nullptr), 0);
  Make("elsewhere/x");
  fs::create_directory_symlink("elsewhere", folder_ / "f");
  EXPECT_EQ(RemoveDir((folder_ / "f").c_str()), 0);
  EXPECT_TRUE(Exists("f") && fs::is_empty(folder_ / "elsewhere")) << "the target is emptied";
}

TEST_F(FileCalls, SweepTheFoldersOfEarlierDays) {
  constexpr std::time_t kDay = 24 * 60 * 60;
  const std::time_t now = std::time(nullptr);
  const bool isFirstOfMonth = std::localtime(&now)->tm_mday == 1;
  const auto sweep = [&](auto remove) {
    const Table<const char*, std::time_t, bool> kEntries = {
        {"p/today/", now, true},
        {"p/tomorrow/", now + kDay, true},
        {"p/next month/", now + 40 * kDay, true},
        {"p/yesterday/", now - kDay, !isFirstOfMonth},
        {"p/two days/", now - 2 * kDay, false},
        {"p/last month/", now - 32 * kDay, false},
        {"p/last year/", now - 366 * kDay, false},
        {"p/unknown/", 0, true},
        {"p/a file", now - 40 * kDay, true}};
    for (const auto& [name, time, stays] : kEntries) {
      Make(name);
      if (stays && name[2] != 'a') Make(name + std::string("x"));
      const timespec times[] = {{time, 0}, {time, 0}};
      ASSERT_EQ(::utimensat(AT_FDCWD, (folder_ / name).c_str(), times, 0), 0);
    }
    remove((folder_ / "p/gone//").c_str());
    for (const auto& [name, time, stays] : kEntries) EXPECT_EQ(Exists(name), stays) << name;
  };
  sweep([](const char* path) { EXPECT_TRUE(RemoveUndeletedDir(path)); });
  Make("p/gone/x");
  sweep(&DeleteFileOrDir);
  EXPECT_FALSE(Exists("p/gone"));
  for (const auto& [path, result] : Table<const char*, bool>{
           {nullptr, false}, {"", false}, {"name", false}, {"name/", false}, {"none/name", true}}) {
    EXPECT_EQ(RemoveUndeletedDir(path), result);
  }
  for (const char* path : {static_cast<const char*>(nullptr), "", "none/name"})
    DeleteFileOrDir(path);
  fs::create_directory_symlink("p", folder_ / "link");
  for (const char* name : {"link", "p/a file"}) {
    DeleteFileOrDir((folder_ / name).c_str());
    EXPECT_FALSE(Exists(name));
  }
  EXPECT_TRUE(Exists("p/today/x"));
}

TEST_F(FileCalls, CopyLeavesALibraryThatIsInUseWhole) {
  Make("source");
  Spit(file_, "old and longer");
  std::ifstream inUse(file_);
  EXPECT_EQ(CopyFile((folder_ / "source").c_str(), file_.c_str(), 1), 1);
  EXPECT_EQ(Slurp(file_), "x");
  std::string line;
  EXPECT_TRUE(std::getline(inUse, line));
  EXPECT_EQ(line, "old and longer");
}
