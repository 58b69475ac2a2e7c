#include "platform/profile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "platform/descriptor.h"
#include "platform/ini_file.h"
#include "platform/system_time.h"
#include "support/temp_folder.h"

namespace {

std::string ReadProfile(const std::string& file, const char* section, const char* key) {
  char buffer[4096];
  GetPrivateProfileStringA(section, key, "(default)", buffer, sizeof buffer, file.c_str());
  return buffer;
}

std::size_t FilesIn(const TempFolder& folder) {
  const std::filesystem::directory_iterator files(folder.path());
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

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

}  // namespace

TEST(Profile, CopiesWhatFitsAndTellsTheFullLength) {
  const TempFolder folder;
  const std::string file = folder / "x.ini";
  const std::string value(70, 'v');
  Spit(file, "[S]\nlong=" + value + "\nnul=a" + '\0' + "b\n");
  const struct {
    const char* key;
    DWORD size, length;
    std::string copied;
  } cases[] = {{"long", 64, 70, value.substr(0, 62)},
               {"LONG", 72, 70, value},
               {"long", 1, 70, ""},
               {"nul", 64, 3, "a"},
               {"none", 5, 7, "def"}};
  for (const auto& c : cases) {
    std::string buffer(80, '#');
    EXPECT_EQ(GetPrivateProfileStringA(" s", c.key, "default", buffer.data(), c.size, file.c_str()),
              c.length);
    EXPECT_EQ(buffer.c_str(), c.copied) << c.key << c.size;
    EXPECT_EQ(buffer.substr(c.size), std::string(80 - c.size, '#')) << "written past the buffer";
  }
}

TEST(Profile, AgreesWithTheModelOnAnyText) {
  const TempFolder folder;
  const std::string file = folder / "x.ini";
  const std::string_view alphabet("aAbB[]== \t\r\n\n\n;\0", 16);
  const unsigned int seed = std::random_device()();
  std::mt19937 random(seed);
  for (int i = 0; i < 4000; ++i) {
    std::string content = random() % 2 == 0 ? "[a]\n" : "";
    for (int lines = 0; lines < 4; ++lines) {
      for (auto left = random() % 12; left > 0; --left) content += alphabet[random() % 16];
      content += random() % 2 == 0 ? "\na=" : "\n[a]\n";
    }
    if (i % 500 == 0) content.insert(4, std::string(40'000, '\n'));
    Spit(file, content);
    CIniFileA model;
    ASSERT_TRUE(model.Load(file));
    for (const char* section : {"A", "", "b", "a]"}) {
      for (const char* key : {"a", "", "[", "Ab"}) {
        ASSERT_EQ(ReadProfile(file, section, key),
                  model.GetKeyValue(section, key, "(default)").c_str())
            << "seed " << seed << " [" << section << "] " << key << " in\n"
            << content;
      }
    }
  }
}

TEST(Profile, WritesKeepTheRestAndLetNoTextPoseAsALine) {
  const TempFolder folder;
  const std::string file = folder / "x.ini";
  const struct {
    const char *section, *key, *value, *content;
    BOOL stored = 1;
  } cases[] = {
      {"S", "b", "1", "[S]\nb=1\n"},
      {"s", "A", " 2\r\nevil=1\n", "[S]\nA= 2evil=1\nb=1\n"},
      {"S", "\nb\r", "3", "[S]\nA= 2evil=1\nb=3\n"},
      {"S]\n[T", "c", "4", "[S]\nA= 2evil=1\nb=3\n[S][T]\nc=4\n"},
      {"S", "[T", "5]", "[S]\nA= 2evil=1\nb=3\n[S][T]\nc=4\n", 0},
      {"S", "A=c", "6", "[S]\nA= 2evil=1\nb=3\n[S][T]\nc=4\n", 0},
      {"S", " ", "7", "[S]\nA= 2evil=1\nb=3\n[S][T]\nc=4\n", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WritePrivateProfileStringA(c.section, c.key, c.value, file.c_str()), c.stored);
    EXPECT_EQ(Slurp(file), c.content) << c.key;
  }
  const ProfileEntry oneBad[] = {{"b", "8"}, {"", "x"}};
  EXPECT_EQ(WritePrivateProfileEntries("S", oneBad, file.c_str()), 0);
  EXPECT_EQ(ReadProfile(file, "S", "b"), "3") << "all of the entries or none";
}

TEST(ProfileSafety, WhatCannotBeReadOrReplacedStaysAsItWas) {
  const TempFolder folder;
  const std::string content = "[S]\nk=old\n";
  const std::string file = folder / "x.ini";
  const auto write = [](const std::string& path, const std::string& value) {
    const char* text = value.c_str();
    return WritePrivateProfileStringA("S", "k", text, path.c_str()) == 1 ? 0 : GetLastError();
  };
  Spit(file, content);
  EXPECT_EQ(ResultOf(Start([&] {
              std::signal(SIGXFSZ, SIG_IGN);
              const rlimit fullDisk{4096, 4096};
              ::setrlimit(RLIMIT_FSIZE, &fullDisk);
              return write(file, std::string(10'000, 'v'));
            })),
            EFBIG);
  EXPECT_EQ(Slurp(file), content);

  // The rights of root would open everything.
  ::chmod(folder.path().c_str(), 0777);
  for (const mode_t mode : {0222, 0444}) {
    ::chmod(file.c_str(), mode);
    EXPECT_EQ(ResultOf(Start([&] {
                if (::geteuid() == 0 && ::setuid(65534) != 0) return 127;
                return write(file, "new");
              })),
              EACCES)
        << mode;
    EXPECT_EQ(Slurp(file), content);
  }
  EXPECT_EQ(FilesIn(folder), 1u) << "no temporary file stays";

  const Descriptor held(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  const DWORD start = GetTickCount();
  ::chmod(file.c_str(), 0600);
  EXPECT_EQ(write(file, "new"), EWOULDBLOCK);
  EXPECT_LT(GetTickCount() - start, 20'000u) << "a stranger's lock stops the service";
  EXPECT_EQ(Slurp(file), content);
}

TEST(ProfileSafety, AKilledWriterLeavesOneWholeVersion) {
  const TempFolder folder;
  const std::string file = folder / "x.ini";
  Spit(file, "[S]\nkept=" + std::string(20'000, 'k') + "\none=start\ntwo=start\n");
  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    const std::string before = ReadProfile(file, "S", "one");
    const pid_t child = Start([&] {
      for (int i = 0;; ++i) {
        const std::string value = std::to_string(round) + "." + std::to_string(i);
        const ProfileEntry twins[] = {{"one", value}, {"two", value}};
        if (WritePrivateProfileEntries("S", twins, file.c_str()) != 1) return 1;
      }
    });
    while (ReadProfile(file, "S", "one") == before) ::usleep(50);
    ::usleep(random() % 2000);
    ::kill(child, SIGKILL);
    EXPECT_EQ(ResultOf(child), -1);
    EXPECT_EQ(ReadProfile(file, "S", "one"), ReadProfile(file, "S", "two"));
    EXPECT_GT(std::filesystem::file_size(file), 20'000u);
    EXPECT_LE(FilesIn(folder), 2u) << "what killed writers leave piles up";
  }
  EXPECT_EQ(WritePrivateProfileStringA("S", "one", "end", file.c_str()), 1);
  EXPECT_EQ(FilesIn(folder), 1u);
}

TEST(ProfileSafety, WritersOfSeveralProcessesLoseNothing) {
  const TempFolder folder;
  const std::string file = folder / "x.ini";
  std::filesystem::create_symlink("x.ini", folder / "link.ini");  // to a file yet to come
  constexpr int kKeys = 60;
  const auto write = [](const std::string& path, const char* prefix) {
    return Start([path, prefix] {
      for (int i = 0; i < kKeys; ++i) {
        const std::string key = prefix + std::to_string(i);
        if (WritePrivateProfileStringA("S", key.c_str(), "v", path.c_str()) != 1) return 1;
      }
      return 0;
    });
  };
  const pid_t children[] = {write(file, "a"), write(folder / "link.ini", "b")};
  for (const pid_t child : children) EXPECT_EQ(ResultOf(child), 0);
  CIniFileA stored;
  ASSERT_TRUE(stored.Load(file));
  EXPECT_EQ(stored.GetSection("S")->GetKeys().size(), 2u * kKeys);
  EXPECT_EQ(FilesIn(folder), 2u);
}
