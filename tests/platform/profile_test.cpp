#include "platform/profile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "os/file.h"
#include "platform/ini_file.h"
#include "platform/system_time.h"
#include "support/testing.h"

namespace {

class Profile : public ::testing::Test {
 protected:
  std::string Read(const char* section, const char* key) const {
    char buffer[4096];
    GetPrivateProfileStringA(section, key, "(default)", buffer, sizeof buffer, file_.c_str());
    return buffer;
  }
  /// The error code, 0 for none.
  int Write(const std::string& value, const std::string& key = "k") const {
    const bool written = WritePrivateProfileStringA("S", key.c_str(), value.c_str(), file_.c_str());
    return written ? 0 : errno;
  }
  std::size_t Files() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_.path()), {}));
  }

  const TempFolder folder_;
  std::string file_ = folder_ / "x.ini";
};
using ProfileSafety = Profile;

/// Starts `work` in a process of its own, which ends with its result.
template <class Work>
pid_t Start(Work work) {
  const pid_t child = ::fork();
  if (child == 0) std::_Exit(work());
  return child;
}

int ResultOf(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Profile, CopiesWhatFitsAndTellsTheFullLength) {
  const std::string value(70, 'v');
  Spit(file_, "[S]\nlong=" + value + "\nnul=a" + '\0' + "b\n");
  for (const auto& [key, size, length, copied] :
       Table<const char*, DWORD, DWORD, std::string>{{"long", 64, 70, value.substr(0, 62)},
                                                     {"LONG", 72, 70, value},
                                                     {"long", 1, 70, ""},
                                                     {"nul", 64, 3, "a"},
                                                     {"none", 5, 7, "def"}}) {
    std::string buffer(80, '#');
    EXPECT_EQ(GetPrivateProfileStringA(" s", key, "default", buffer.data(), size, file_.c_str()),
              length);
    EXPECT_EQ(buffer.c_str(), copied) << key << size;
    EXPECT_EQ(buffer.substr(size), std::string(80 - size, '#')) << "written past the buffer";
  }
}

TEST_F(Profile, WritesKeepTheRestAndLetNoTextPoseAsALine) {
  const std::string last = "[S]\nA= 2evil=1\nb=3\n[S][T]\nc=4\n";
  for (const auto& [section, key, value, content] :
       Table<const char*, const char*, const char*, std::string>{
           {"S", "b", "1", "[S]\nb=1\n"},
           {"s", "A", " 2\r\nevil=1\n", "[S]\nA= 2evil=1\nb=1\n"},
           {"S", "\nb\r", "3", "[S]\nA= 2evil=1\nb=3\n"},
           {"S]\n[T", "c", "4", last}}) {
    EXPECT_EQ(WritePrivateProfileStringA(section, key, value, file_.c_str()), 1);
    EXPECT_EQ(Slurp(file_), content) << key;
  }
  for (const char* key : {"[T", "A=c", " ", ""}) EXPECT_EQ(Write("5]", key), EINVAL) << key;
  const ProfileEntry oneBad[] = {{"b", "8"}, {"", "x"}};
  EXPECT_EQ(WritePrivateProfileEntries("S", oneBad, file_.c_str()), 0);
  EXPECT_EQ(Slurp(file_), last) << "all of the entries or none";
}

TEST_F(ProfileSafety, WhatCannotBeReadOrReplacedStaysAsItWas) {
  const std::string content = "[S]\nk=old\n";
  Spit(file_, content);
  const auto fillTheDisk = [this] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit full{4096, 4096};
    ::setrlimit(RLIMIT_FSIZE, &full);
    return Write(std::string(10'000, 'v'));
  };
  EXPECT_EQ(ResultOf(Start(fillTheDisk)), EFBIG);
  EXPECT_EQ(Slurp(file_), content);

  ::chmod(folder_.path().c_str(), 0777);
  const auto writeAsNobody = [this] {  // the rights of root would open everything
    return ::geteuid() == 0 && ::setuid(65534) != 0 ? 127 : Write("new");
  };
  for (const mode_t mode : {0222, 0444}) {
    ::chmod(file_.c_str(), mode);
    EXPECT_EQ(ResultOf(Start(writeAsNobody)), EACCES) << mode;
    EXPECT_EQ(Slurp(file_), content);
  }
  EXPECT_EQ(Files(), 1u) << "no temporary file stays";

  const Descriptor held(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  const DWORD start = GetTickCount();
  ::chmod(file_.c_str(), 0600);
  EXPECT_EQ(Write("new"), EWOULDBLOCK);
  EXPECT_LT(GetTickCount() - start, 20'000u) << "a stranger's lock stops the service";
  EXPECT_EQ(Slurp(file_), content);
}

TEST_F(ProfileSafety, AKilledWriterLeavesOneWholeVersion) {
  Spit(file_, "[S]\nkept=" + std::string(20'000, 'k') + "\none=start\ntwo=start\n");
  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    const std::string before = Read("S", "one");
    const pid_t child = Start([&] {
      for (int i = 0;; ++i) {
        const std::string value = std::to_string(round) + "." + std::to_string(i);
        const ProfileEntry twins[] = {{"one", value}, {"two", value}};
        if (WritePrivateProfileEntries("S", twins, file_.c_str()) != 1) return 1;
      }
    });
    while (Read("S", "one") == before) ::usleep(50);
    ::usleep(random() % 2000);
    ::kill(child, SIGKILL);
    EXPECT_EQ(ResultOf(child), -1);
    EXPECT_EQ(Read("S", "one"), Read("S", "two"));
    EXPECT_GT(fs::file_size(file_), 20'000u);
    EXPECT_LE(Files(), 2u) << "what killed writers leave piles up";
  }
  EXPECT_EQ(Write("end"), 0);
  EXPECT_EQ(Files(), 1u);
}

TEST_F(ProfileSafety, WritersOfSeveralProcessesLoseNothing) {
  const std::string link = folder_ / "link.ini";
  fs::create_symlink("x.ini", link);  // to a file yet to come
  constexpr int kKeys = 60;
  std::vector<pid_t> children;
  for (const std::string& name : {file_, link}) {
    children.push_back(Start([&] {
      file_ = name;
      int failures = 0;
      for (int i = 0; i < kKeys; ++i) failures += Write("v", name + std::to_string(i)) != 0;
      return failures;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(ResultOf(child), 0);
  CIniFileA stored;
  ASSERT_TRUE(stored.Load(file_));
  EXPECT_EQ(stored.GetSection("S")->GetKeys().size(), 2u * kKeys);
  EXPECT_EQ(Files(), 2u);
}

}  // namespace
