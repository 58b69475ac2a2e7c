#include "platform/file_content.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/descriptor.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

TEST(WholeFile, ComesBackWholeWhateverItsSize) {
  const TempFolder folder;
  const std::string path = folder / std::string(250, 'n');  // nearly as long as names may be
  for (const std::size_t size : {0, 1, 16383, 16384, 16385, 1'000'000}) {
    const std::string content(size, static_cast<char>('a' + size % 7));
    ASSERT_EQ(WriteWholeFile(path.c_str(), content, 0640, Flush::Later), 0);
    std::string read = "old";
    EXPECT_EQ(ReadWholeFile(path.c_str(), &read), 0);
    EXPECT_TRUE(read == content) << size;
  }
  std::string read = "old";
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(ReadWholeFile((folder / "pipe").c_str(), &read), EINVAL);
  EXPECT_EQ(WriteWholeFile((folder / "pipe").c_str(), "x", 0600), EINVAL);
  EXPECT_EQ(ReadWholeFile(folder.path().c_str(), &read), EISDIR);
  EXPECT_EQ(ReadWholeFile((folder / "missing").c_str(), &read), ENOENT);
  EXPECT_EQ(read, "old");
}

TEST(WholeFile, WritingKeepsModeAndLinks) {
  const TempFolder folder;
  const std::string file = folder / "file";
  const std::string link = folder / "link";
  fs::create_symlink("file", link);
  const auto mode = [&] {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  };
  const mode_t mask = ::umask(027);
  EXPECT_EQ(WriteWholeFile(link.c_str(), "first", 0777), 0);
  ::umask(mask);
  EXPECT_EQ(mode(), 0750u);
  ::chmod(file.c_str(), 0604);
  EXPECT_EQ(WriteWholeFile(link.c_str(), "second", 0777), 0);
  EXPECT_EQ(mode(), 0604u);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Slurp(file), "second");
}

TEST(WholeFile, NothingBesideItKeepsItFromBeingWritten) {
  const TempFolder folder;
  const std::string file = folder / "file";
  const std::string beside = folder / ".file.replacement";
  const auto writes = [&](const char* content, int filesLeft) {
    const int error = WriteWholeFile(file.c_str(), content, 0600);
    const fs::directory_iterator files(folder.path());
    return error == 0 && Slurp(file) == content &&
           std::distance(begin(files), end(files)) == filesLeft;
  };
  Spit(beside, "left by a killed writer");
  EXPECT_TRUE(writes("1", 1));
  fs::create_symlink("dangling", beside);
  EXPECT_TRUE(writes("2", 2));
  fs::remove(beside);
  Spit(beside, "locked for ever");
  const Descriptor locked(::open(beside.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(locked.get(), LOCK_EX), 0);
  EXPECT_TRUE(writes("3", 2));
}

TEST(WholeFile, WritersOfOneFileTakeTurns) {
  const TempFolder folder;
  const std::string path = folder / "file";
  std::vector<std::thread> writers;
  for (char ch = 'a'; ch < 'e'; ++ch) {
    writers.emplace_back([&path, ch] {
      const std::string content(50'000, ch);
      for (int i = 0; i < 25; ++i) EXPECT_EQ(WriteWholeFile(path.c_str(), content, 0600), 0);
    });
  }
  for (int i = 0; i < 200; ++i) {
    std::string seen;
    if (ReadWholeFile(path.c_str(), &seen) != 0) continue;  // not there yet
    EXPECT_EQ(std::count(seen.begin(), seen.end(), seen.front()), 50'000);
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_FALSE(fs::exists(folder / ".file.replacement"));
}
