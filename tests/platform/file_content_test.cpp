#include "platform/file_content.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <thread>
#include <vector>

#include "support/temp_folder.h"

TEST(WholeFile, ComesBackWholeWhateverItsSize) {
  const TempFolder folder;
  const std::string path = folder / std::string(250, 'n');  // nearly as long as names may be
  for (const std::size_t size : {0, 1, 16383, 16384, 16385, 1'000'000}) {
    const std::string content(size, static_cast<char>('a' + size % 7));
    ASSERT_EQ(WriteWholeFile(path.c_str(), content, 0640), 0);
    std::string read = "old";
    EXPECT_EQ(ReadWholeFile(path.c_str(), &read), 0);
    EXPECT_TRUE(read == content) << size;
    EXPECT_TRUE(FileView(path.c_str()).text() == content) << size;
  }
  std::string none;
  EXPECT_EQ(ReadWholeFile(folder.path().c_str(), &none), EISDIR);
  EXPECT_EQ(ReadWholeFile((folder / "missing").c_str(), &none), ENOENT);
  EXPECT_EQ(FileView((folder / "missing").c_str()).text(), "");
}

TEST(WholeFile, WritingKeepsModeAndLinksAndRefusesWhatIsNoFile) {
  const TempFolder folder;
  const std::string file = folder / "file";
  const std::string link = folder / "link";
  std::filesystem::create_symlink("file", link);
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
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(Slurp(file), "second");

  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(WriteWholeFile((folder / "pipe").c_str(), "x", 0600), EINVAL);
  EXPECT_EQ(WriteWholeFile(folder.path().c_str(), "x", 0600), EISDIR);

  Spit(folder / ".file.replacement", "left behind");
  EXPECT_EQ(WriteWholeFile(file.c_str(), "third", 0777), 0);
  EXPECT_EQ(Slurp(file), "third");
  EXPECT_FALSE(std::filesystem::exists(folder / ".file.replacement"));
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
  EXPECT_FALSE(std::filesystem::exists(folder / ".file.replacement"));
}
