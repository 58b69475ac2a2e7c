#include "util/cutil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

TEST(CUtil, EditsTextsInPlace) {
  char version[] = "17, 3, 0, 0531";
  CUtil::RemoveChar(version, ',');
  CUtil::RemoveChar(version, ' ');
  EXPECT_STREQ(version, "17300531");

  const struct {
    const char* text;
    const char* trimmed;
  } kNames[] = {{"a/b//", "a/b"}, {"a\\/", "a\\"}, {"a/\\ ", "a"}, {"a / ", "a "}, {"///", ""}};
  for (const auto& [text, trimmed] : kNames) {
    std::string name = text;
    CUtil::TrimWindowsFileName(name.data());
    EXPECT_STREQ(name.c_str(), trimmed) << text;
  }

  const struct {
    const char *text, *from, *to, *result;
  } kReplacements[] = {{"aXbX", "X", "YY", "aYYbYY"},
                       {"aaaa", "aa", "a", "aa"},
                       {"ab", "b", "ab", "aab"},
                       {"abc", "x", "y", "abc"},
                       {"abc", "", "y", "abc"}};
  for (const auto& [text, from, to, result] : kReplacements) {
    std::string edited = text;
    CUtil::find_and_replace(edited, from, to);
    EXPECT_EQ(edited, result) << text;
  }
}

TEST(CUtil, MakesHostNamesAscii) {
  const struct {
    const char *name, *ascii;
  } kNames[] = {{"Example.COM", "Example.COM"},
                {"b\xC3\xBC"
                 "cher.example",
                 "xn--bcher-kva.example"},
                {"B\xC3\x9C"
                 "CHER.Example",
                 "xn--bcher-kva.Example"},
                {"\xE4\xBE\x8B\xE3\x81\x88.jp", "xn--r8jz45g.jp"},
                {"", ""},
                {"\xFF\xFE.example", nullptr}};
  for (const auto& [name, ascii] : kNames) {
    char out[1024] = "untouched";
    EXPECT_EQ(CUtil::IdnToAscii(name, out), ascii != nullptr) << name;
    EXPECT_STREQ(out, ascii != nullptr ? ascii : "untouched") << name;
  }
  char out[1024];
  EXPECT_FALSE(CUtil::IdnToAscii(std::string(5000, 'a').c_str(), out));
}

TEST(CUtil, TellsItsPlaceAndMakesIdentifiers) {
  char folder[1024];
  CUtil::GetDllPath(folder);
  EXPECT_EQ(fs::canonical("/proc/self/exe").parent_path().string() + "/", folder);
  char one[1024];
  char other[1024];
  EXPECT_EQ(CUtil::CreateUUID(one), 32);
  CUtil::CreateUUID(other);
  EXPECT_EQ(std::string(one).find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_STRNE(one, other);
}

TEST(CUtil, MakesTheFoldersAboveAFile) {
  const TempFolder temp;
  EXPECT_TRUE(CUtil::CreateDirectory((temp / "a/b/c.txt").c_str(), true));
  EXPECT_TRUE(fs::is_directory(temp / "a/b"));
  EXPECT_FALSE(fs::exists(temp / "a/b/c.txt"));
  EXPECT_TRUE(CUtil::CreateDirectory((temp / "d/e/").c_str(), true));
  EXPECT_TRUE(fs::is_directory(temp / "d/e"));
  EXPECT_TRUE(CUtil::CreateDirectory("no_folder_at_all", true));
  Spit(temp / "file", "x");
  EXPECT_FALSE(CUtil::CreateDirectory((temp / "file/sub/x").c_str(), true));
}

TEST(CUtil, DeletesATreeAndNothingThatItPointsTo) {
  const TempFolder temp;
  const TempFolder elsewhere;
  Spit(elsewhere / "kept", "x");
  fs::create_directories(temp / "tree/sub/deep");
  Spit(temp / "tree/sub/deep/file", "x");
  fs::create_directory_symlink(elsewhere.path(), temp / "tree/link");
  fs::create_symlink("nowhere", temp / "tree/dangling");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "tree/").c_str(), true));
  EXPECT_FALSE(fs::exists(temp / "tree"));
  EXPECT_EQ(Slurp(elsewhere / "kept"), "x");

  // A link at the top stands for the folder that it leads to.
  fs::create_directory_symlink(elsewhere.path(), temp / "link");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "link/").c_str(), false));
  EXPECT_TRUE(fs::is_symlink(temp / "link"));
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));
  Spit(elsewhere / "more", "x");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "link/\\").c_str(), true));
  EXPECT_FALSE(fs::is_symlink(temp / "link"));
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));

  fs::create_directories(temp / "kept/sub");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "kept").c_str(), false));
  EXPECT_TRUE(fs::is_directory(temp / "kept"));
  EXPECT_TRUE(fs::is_empty(temp / "kept"));
  EXPECT_TRUE(CUtil::DeleteDirectory((temp / "missing").c_str(), false));
  EXPECT_FALSE(CUtil::DeleteDirectory((temp / "missing").c_str(), true));
}

TEST(CUtil, CopiesAFolderWithOrWithoutItsSubfolders) {
  const TempFolder temp;
  fs::create_directories(temp / "from/sub/empty");
  Spit(temp / "from/top", "1");
  Spit(temp / "from/sub/deep", "2");
  fs::create_symlink("deep", temp / "from/sub/file link");
  for (const char* loop : {"from/sub/up", "from/sub/up again"}) {
    fs::create_directory_symlink("..", temp / loop);
  }
  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp / "from/").c_str(), (temp / "flat/").c_str(), false));
  EXPECT_EQ(Slurp(temp / "flat/top"), "1");
  EXPECT_FALSE(fs::exists(temp / "flat/sub"));

  fs::create_directories(temp / "all/sub");
  Spit(temp / "all/sub/deep", "old");
  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp / "from").c_str(), (temp / "all").c_str(), true));
  EXPECT_EQ(Slurp(temp / "all/sub/deep"), "2");
  EXPECT_EQ(Slurp(temp / "all/sub/file link"), "2");
  EXPECT_FALSE(fs::is_symlink(temp / "all/sub/file link"));
  EXPECT_FALSE(fs::exists(temp / "all/sub/up"));

  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp / "none").c_str(), (temp / "x").c_str(), true));
  EXPECT_FALSE(fs::exists(temp / "x"));
  Spit(temp / "blocked", "a file where the folder should be");
  EXPECT_FALSE(
      CUtil::CopyDirectoryFiles((temp / "from").c_str(), (temp / "blocked").c_str(), true));
}

TEST(CUtil, SavesBytesWithTheirFolders) {
  const TempFolder temp;
  const auto save = [&](const std::string& name, const std::string& data, unsigned int offset) {
    return CUtil::SaveDataToFileInner((temp / name).c_str(),
                                      reinterpret_cast<const unsigned char*>(data.data()),
                                      static_cast<unsigned int>(data.size()), offset);
  };
  EXPECT_EQ(save("a/b/file", "hello", 0), 0);
  EXPECT_EQ(save("a/b/file", "LP", 3), 0);
  EXPECT_EQ(Slurp(temp / "a/b/file"), "helLP");
  EXPECT_EQ(save("a/b/file", "x", 0), 0);
  EXPECT_EQ(Slurp(temp / "a/b/file"), "x");
  EXPECT_EQ(save("missing", "x", 3), 16);
  EXPECT_FALSE(fs::exists(temp / "missing"));
  EXPECT_EQ(save("a/b/file/below", "x", 0), 16);
  ASSERT_EQ(::mkfifo((temp / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(save("pipe", "x", 0), 16);
  EXPECT_TRUE(fs::is_fifo(temp / "pipe")) << "only a failed write deletes";
  EXPECT_EQ(CUtil::SaveDataToFileInner(nullptr, nullptr, 0, 0), 22);
  EXPECT_EQ(CUtil::SaveDataToFileInner(nullptr, nullptr, 0, 1), 16);
}

}  // namespace
