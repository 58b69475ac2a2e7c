#include "os/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "os/folder.h"
#include "support/testing.h"

class WholeFile : public ::testing::Test {
 protected:
  int Write(const std::string& content) { return WriteWholeFile(file_.c_str(), content, 0600); }

  const TempFolder folder_;
  const std::string file_ = folder_ / "file";
  const std::string beside_ = folder_ / ".file.replacement";
};

TEST_F(WholeFile, ComesBackWholeWhateverItsSize) {
  const std::string longName = folder_ / std::string(250, 'n');  // nearly as long as names may be
  std::string read = "old";
  for (const std::size_t size : {0, 1, 16383, 16384, 16385, 1'000'000}) {
    EXPECT_EQ(WriteWholeFile(longName.c_str(), std::string(size, 'a'), 0600, Flush::Later), 0);
    EXPECT_EQ(ReadWholeFile(longName.c_str(), &read), 0);
    EXPECT_TRUE(read == std::string(size, 'a')) << size;
  }
  EXPECT_EQ(ReadWholeFile(folder_.path().c_str(), &read), EISDIR);
  EXPECT_EQ(ReadWholeFile(file_.c_str(), &read), ENOENT);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(ReadWholeFile(file_.c_str(), &read), EINVAL);
  EXPECT_EQ(Write("x"), EINVAL);
  EXPECT_EQ(read.size(), 1'000'000u) << "a failure changes nothing";
  for (const std::size_t size : {0, 16383, 16384, 16385}) {
    Spit(longName, std::string(size, 'b'));
    FileView view;
    view.Read(longName.c_str());
    EXPECT_EQ(view.text(), std::string(size, 'b'));
  }
  for (const char* none :
       {file_.c_str(), folder_.path().c_str(), static_cast<const char*>(nullptr)}) {
    FileView view;
    view.Read(none);
    EXPECT_EQ(view.text(), "");
  }
}

TEST_F(WholeFile, ALockFileIsItsOwnersAndHasOneHolder) {
  const auto now = std::chrono::steady_clock::now();
  Descriptor first, second;
  EXPECT_EQ(OpenLocked(file_, now, &first), 0);
  EXPECT_EQ(fs::status(file_).permissions(), fs::perms(0600));
  EXPECT_EQ(OpenLocked(file_, now, &second), EWOULDBLOCK);
  fs::remove(file_);
  EXPECT_FALSE(IsNamed(file_.c_str(), first.get()));
  EXPECT_EQ(OpenLocked(file_, now, &second), 0) << "the lock on a file that is gone is no lock";
  second = Descriptor();
  fs::remove(file_);
  fs::create_symlink("elsewhere", file_);
  EXPECT_EQ(OpenLocked(file_, now, &second), ELOOP);
  EXPECT_FALSE(fs::exists(folder_ / "elsewhere"));
}

TEST_F(WholeFile, NothingBesideItDelaysAWriteAndNothingLeftBehindStays) {
  const std::string random = folder_ / ".file.0123.replacement";
  for (const std::string& left : {beside_, random}) Spit(left, "left by a killed writer");
  EXPECT_EQ(Write("1"), 0);
  EXPECT_FALSE(fs::exists(beside_) || fs::exists(random));
  fs::create_symlink("dangling", beside_);
  EXPECT_EQ(Write("2"), 0);
  fs::remove(beside_);
  Spit(beside_, "another writer's");
  const Descriptor locked(::open(beside_.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(locked.get(), LOCK_EX), 0);
  const auto start = std::chrono::steady_clock::now();
  for (const char* text : {"3", "4", "5", "6"}) EXPECT_EQ(Write(text), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << "waited";
  EXPECT_EQ(Slurp(file_) + Slurp(beside_), "6another writer's");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 2);
}

TEST_F(WholeFile, WhatReplacesAFileIsItsWritersAloneUntilTheEnd) {
  const mode_t mask = ::umask(022);
  for (const unsigned mode : {0644u, 0666u}) {  // a new file, and one that is there
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const Descriptor content(ends[0]);
    std::jthread writer(
        [&] { EXPECT_EQ(WriteWholeFile(file_.c_str(), content, 0666, Flush::Later), 0); });
    EXPECT_TRUE(WaitUntil([this] {
      return fs::exists(beside_) && fs::status(beside_).permissions() == fs::perms(0600);
    }));
    EXPECT_EQ(::write(ends[1], "content", 7), 7);
    ::close(ends[1]);
    writer.join();
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms(mode));
    EXPECT_EQ(Slurp(file_), "content");
    fs::permissions(file_, fs::perms(0666));
  }
  ::umask(mask);
}

TEST_F(WholeFile, SeveralWritersLeaveOneWholeText) {
  std::vector<std::jthread> writers;
  for (char ch = 'a'; ch < 'e'; ++ch) {
    writers.emplace_back([this, ch] {
      for (int i = 0; i < 25; ++i) EXPECT_EQ(Write(std::string(50'000, ch)), 0);
    });
  }
  for (int i = 0; i < 200; ++i) {
    std::string seen;
    if (ReadWholeFile(file_.c_str(), &seen) != 0) continue;  // not there yet
    EXPECT_EQ(seen, std::string(50'000, seen.front()));
  }
  writers.clear();
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 1);
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
