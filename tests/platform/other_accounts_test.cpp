// What another account may and may not do to settings files. Root plays both accounts.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/file.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "platform/system_time.h"
#include "support/child.h"
#include "support/testing.h"

namespace {

constexpr gid_t kGroup = 4242;

class OtherAccounts : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    Spit(file_, "[S]\nk=old\nlonger=value\n");
  }
  int Write(const char* value) const {
    return WritePrivateProfileStringA("S", "k", value, file_.c_str()) == 1 ? 0 : errno;
  }
  /// Everybody may do with the path what `mode` says.
  static void Allow(const std::string& path, mode_t mode) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
  }
  struct stat Status() const {
    struct stat status {};
    ::stat(file_.c_str(), &status);
    return status;
  }

  const TempFolder folder_;
  const std::string file_ = folder_ / "x.ini";
  const std::string lock_ = folder_ / ".x.ini.lock";
};

TEST_F(OtherAccounts, LockWhatTheyMayOpenAndDelayNothing) {
  Allow(folder_.path(), 0777);
  Allow(file_, 0666);
  EXPECT_EQ(Write("1"), 0);
  EXPECT_EQ(fs::status(lock_).permissions(), fs::perms(0600));
  int ready[2];
  int done[2];
  ASSERT_TRUE(::pipe(ready) == 0 && ::pipe(done) == 0);
  const std::string planted = folder_ / ".planted.ini.lock";
  const pid_t stranger = StartAs(kStranger, [&] {
    std::vector<Descriptor> held;
    for (const std::string& path : {folder_.path(), file_, lock_, planted}) {
      const int flags = path == planted ? O_RDWR | O_CREAT : O_RDONLY;
      held.emplace_back(::open(path.c_str(), flags | O_CLOEXEC, 0666));
      if (::fchmod(held.back().get(), 0666) != 0 && path == planted) return 1;
      if (held.back() && ::flock(held.back().get(), LOCK_EX | LOCK_NB) != 0) return 2;
    }
    char byte = 0;
    return ::write(ready[1], &byte, 1) == 1 && ::read(done[0], &byte, 1) == 1 ? 0 : 3;
  });
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  const DWORD start = GetTickCount();
  EXPECT_EQ(Write("2"), 0);
  const std::string other = folder_ / "planted.ini";
  EXPECT_EQ(WritePrivateProfileStringA("S", "k", "3", other.c_str()), 1);
  EXPECT_LT(GetTickCount() - start, 2000u);
  EXPECT_EQ(Slurp(file_), "[S]\nk=2\nlonger=value\n");
  EXPECT_EQ(Slurp(other), "[S]\nk=3\n");
  EXPECT_EQ(::write(done[1], &byte, 1), 1);
  EXPECT_EQ(ResultOf(stranger), 0);
  for (const int end : {ready[0], ready[1], done[0], done[1]}) ::close(end);
}

TEST_F(OtherAccounts, KeepTheFilesGroup) {
  Allow(folder_.path(), 0777);
  ASSERT_EQ(::chown(file_.c_str(), 0, kGroup), 0);
  Allow(file_, 0660);
  EXPECT_EQ(ResultOf(StartAs({kStranger.user, {kGroup}}, [&] { return Write("new"); })), 0);
  EXPECT_EQ(Status().st_uid, kStranger.user) << "replaced";
  EXPECT_EQ(Status().st_gid, kGroup);
  EXPECT_EQ(Status().st_mode & 07777, 0660u);
}

TEST_F(OtherAccounts, WriteInPlaceWhereTheFolderIsNotTheirs) {
  Allow(file_, 0666);
  for (const mode_t folderMode : {0755, 01777}) {  // the sticky one refuses the exchange only
    Allow(folder_.path(), folderMode);
    for (const std::string& value : {std::string(3000, 'v'), std::string("short")}) {
      const ino_t before = Status().st_ino;
      EXPECT_EQ(ResultOf(StartAs(kStranger, [&] { return Write(value.c_str()); })), 0);
      EXPECT_TRUE(Slurp(file_) == "[S]\nk=" + value + "\nlonger=value\n") << value.size();
      EXPECT_EQ(Status().st_ino, before);
    }
  }
  Allow(folder_.path(), 0755);
  const std::string kept = Slurp(file_);
  const auto writeMuch = [&] { return Write(std::string(10'000, 'v').c_str()); };
  EXPECT_EQ(ResultOf(StartAs(kStranger, OnAFullDisk(writeMuch))), EFBIG);
  EXPECT_EQ(Slurp(file_), kept) << "the half that could be written is taken back";
  const std::string source = folder_ / "source";
  Spit(source, "copied");
  const auto copy = [&] { return CopyFile(source.c_str(), file_.c_str(), 0); };
  EXPECT_EQ(ResultOf(StartAs(kStranger, copy)), 1);
  EXPECT_EQ(Slurp(file_), "copied");
  Allow(file_, 0644);
  Spit(source, "refused");
  EXPECT_EQ(ResultOf(StartAs(kStranger, copy)), 0);
  EXPECT_EQ(ResultOf(StartAs(kStranger, [&] { return Write("new"); })), EACCES);
  EXPECT_EQ(Slurp(file_), "copied");
}

TEST_F(OtherAccounts, TakeTurnsWhereTheyWriteInPlace) {
  Allow(folder_.path(), 0755);
  Allow(file_, 0666);
  constexpr int kKeys = 40;
  std::vector<pid_t> writers;
  for (const std::string name : {"a", "b"}) {
    writers.push_back(StartAs(kStranger, [&] {
      int failures = 0;
      for (int i = 0; i < kKeys; ++i) {
        const std::string key = name + std::to_string(i);
        failures += WritePrivateProfileStringA("S", key.c_str(), "v", file_.c_str()) != 1;
      }
      return failures;
    }));
  }
  for (const pid_t writer : writers) EXPECT_EQ(ResultOf(writer), 0);
  const std::string text = Slurp(file_);
  EXPECT_EQ(std::count(text.begin(), text.end(), '='), 2 + 2 * kKeys) << "a change was lost";
}

// The service's own account can hold the lock for long, too: a debugger stops a program in a write.
TEST_F(OtherAccounts, ALockThatIsHeldTooLongIsWaitedForAndThenIgnored) {
  EXPECT_EQ(Write("1"), 0);
  const Descriptor held(::open(lock_.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  const DWORD start = GetTickCount();
  EXPECT_EQ(Write("2"), 0);
  EXPECT_GE(GetTickCount() - start, 1000u) << "writers take turns";
  EXPECT_LT(GetTickCount() - start, 10'000u);
  EXPECT_EQ(Slurp(file_), "[S]\nk=2\nlonger=value\n");
}

TEST_F(OtherAccounts, ALinkInPlaceOfTheLockIsNotFollowed) {
  const std::string target = folder_ / "target";
  fs::create_symlink("target", lock_);
  EXPECT_EQ(Write("1"), 0);
  EXPECT_FALSE(fs::exists(target));
  EXPECT_EQ(Slurp(file_), "[S]\nk=1\nlonger=value\n");
}

}  // namespace
