#include "platform/profile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <random>

#include "os/file.h"
#include "platform/ini_file.h"
#include "platform/system_time.h"
#include "support/child.h"
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

TEST_F(Profile, AByteOrderMarkHidesNothingAndStays) {
  Spit(file_, "\xEF\xBB\xBF[S]\nk=1\n");
  EXPECT_EQ(Read("S", "k"), "1");
  EXPECT_EQ(Write("2"), 0);
  EXPECT_EQ(Slurp(file_), "\xEF\xBB\xBF[S]\nk=2\n");
  EXPECT_EQ(Read("S", "k"), "2");
}

TEST_F(ProfileSafety, WhatCannotBeReadOrReplacedStaysAsItWas) {
  const std::string content = "[S]\nk=old\n";
  Spit(file_, content);
  const auto writeMuch = [this] { return Write(std::string(10'000, 'v')); };
  EXPECT_EQ(ResultOf(Start(OnAFullDisk(writeMuch))), EFBIG);
  EXPECT_EQ(Slurp(file_), content);

  ::chmod(folder_.path().c_str(), 0777);
  const auto write = [this] { return Write("new"); };
  const bool isRoot = ::geteuid() == 0;  // whose rights would open everything
  for (const mode_t mode : {0222, 0444}) {
    ::chmod(file_.c_str(), mode);
    EXPECT_EQ(ResultOf(isRoot ? StartAs(kStranger, write) : Start(write)), EACCES) << mode;
    EXPECT_EQ(Slurp(file_), content);
  }
  EXPECT_EQ(Files(), 2u) << "no temporary file stays, but the lock";
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
    EXPECT_LE(Files(), 3u) << "what killed writers leave piles up";
  }
  EXPECT_EQ(Write("end"), 0);
  EXPECT_EQ(Files(), 2u) << "the file and its lock";
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
  EXPECT_EQ(Files(), 3u);
}

constexpr int kBurst = 300;

/// Changes the file many times, keeping its size and modification time, leaves it alone until its
/// readers trust what they have read, and changes it again.
void ChangeWithoutRest(bool replaces, int openFlags, const std::string& file,
                       std::atomic<int>& completed) {
  constexpr timespec kLongAgo[] = {{1'000'000, 0}, {1'000'000, 0}};
  const std::string target = replaces ? file + ".new" : file;
  const auto isOld = [&] {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 && status.st_ctime + 6 < std::time(nullptr);
  };
  for (int value = 1; value <= 2 * kBurst; ++value) {
    if (value == kBurst + 1) {
      EXPECT_TRUE(WaitUntil(isOld));
    }
    char content[64];  // the value twice: a look may fall into a write in place
    std::snprintf(content, sizeof content, "[S]\nk=%08d,%08d\n", value, value);
    const Descriptor open(::open(target.c_str(), openFlags, 0600));
    ASSERT_EQ(WriteAll(open.get(), content), 0);
    ASSERT_EQ(::futimens(open.get(), kLongAgo), 0);
    ASSERT_TRUE(!replaces || ::rename(target.c_str(), file.c_str()) == 0);
    completed = value;
  }
}

TEST_F(ProfileSafety, NoLookTellsLessThanTheLastCompletedChange) {
  // The ways in which others change a settings file: they replace, truncate, and overwrite it.
  constexpr std::pair<bool, int> kWays[] = {{true, O_WRONLY | O_CREAT | O_TRUNC},
                                            {false, O_WRONLY | O_CREAT | O_TRUNC},
                                            {false, O_WRONLY}};
  constexpr std::size_t kFiles = std::size(kWays);
  std::array<std::atomic<int>, kFiles> completed{};
  std::vector<std::string> files;
  for (std::size_t i = 0; i < kFiles; ++i) {
    files.push_back(folder_ / std::to_string(i) + ".ini");
    Spit(files[i], "");
  }
  std::atomic<bool> stop{false};
  std::atomic<int> lastSeen{0};
  std::vector<std::jthread> readers, writers;
  for (int reader = 0; reader < 2; ++reader) {
    readers.emplace_back([&] {
      for (std::size_t i = 0; !stop; i = (i + 1) % kFiles) {
        const int before = completed[i];
        int first = 0, second = 0;
        char value[64];
        GetPrivateProfileStringA("S", "k", "", value, sizeof value, files[i].c_str());
        if (std::sscanf(value, "%d,%d", &first, &second) != 2 || first != second) continue;
        ASSERT_GE(first, before) << "file " << i;
        lastSeen = std::max(lastSeen.load(), first);
      }
    });
  }
  for (std::size_t i = 0; i < kFiles; ++i) {
    writers.emplace_back(
        [&, i] { ChangeWithoutRest(kWays[i].first, kWays[i].second, files[i], completed[i]); });
  }
  writers.clear();
  stop = true;
  readers.clear();
  EXPECT_GT(lastSeen, kBurst) << "the readers saw nothing of the second burst";
}

}  // namespace
