#include "util/cutil.h"

#include <ctime>
#include <regex>

#include "support/child.h"
#include "support/machine.h"
#include "support/testing.h"

namespace {

class CUtilTest : public ::testing::Test {
 protected:
  const TempFolder temp_, elsewhere_;
};

TEST_F(CUtilTest, DeletesATreeAndNothingThatItPointsTo) {
  Spit(elsewhere_ / "kept", "x");
  fs::create_directories(temp_ / "tree/sub/deep");
  Spit(temp_ / "tree/sub/deep/file", "x");
  fs::create_directory_symlink(elsewhere_.path(), temp_ / "tree/link");
  fs::create_symlink("nowhere", temp_ / "tree/dangling");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp_ / "tree/").c_str(), true));
  EXPECT_FALSE(fs::exists(temp_ / "tree"));
  EXPECT_EQ(Slurp(elsewhere_ / "kept"), "x");

  fs::create_directory_symlink(elsewhere_.path(), temp_ / "link");
  EXPECT_TRUE(CUtil::DeleteDirectory((temp_ / "link/\\").c_str(), true));
  EXPECT_FALSE(fs::is_symlink(temp_ / "link"));
  EXPECT_TRUE(fs::is_empty(elsewhere_.path())) << "at the top a link stands for its folder";
}

TEST_F(CUtilTest, CopiesAFolderButNotRoundALoopOfLinks) {
  fs::create_directories(temp_ / "from/sub");
  Spit(temp_ / "from/sub/deep", "x");
  fs::create_directory_symlink("..", temp_ / "from/sub/up");
  EXPECT_TRUE(CUtil::CopyDirectoryFiles((temp_ / "from/").c_str(), (temp_ / "to").c_str(), true));
  EXPECT_EQ(Slurp(temp_ / "to/sub/deep"), "x");
  EXPECT_FALSE(fs::exists(temp_ / "to/sub/up"));
}

TEST_F(CUtilTest, CopiesFilesAloneUnlessAskedForMore) {
  fs::create_directories(temp_ / "from/sub");
  fs::create_directories(temp_ / "no folders");
  for (const char* name : {"from/a", "from/sub/b", "in the way"}) Spit(temp_ / name, "new");
  fs::create_symlink("a", temp_ / "from/link");
  fs::create_symlink("nothing", temp_ / "from/dangling");
  for (const auto& [from, to, recursive, result, entries] :
       Table<const char*, const char*, bool, bool, std::ptrdiff_t>{
           {"missing", "to", true, true, 0},
           {"no folders", "to", true, true, 0},
           {"from", "to/deep", false, true, 3},
           {"from", "in the way", false, false, 0},
           {"from", "in the way/x", true, false, 0},
           {"from", "to", true, true, 4}}) {
    fs::remove_all(temp_ / "to");
    fs::create_directories(temp_ / "to");
    EXPECT_EQ(
        CUtil::CopyDirectoryFiles((temp_ / from).c_str(), (temp_ / to + "/").c_str(), recursive),
        result)
        << from << to;
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(temp_ / "to"), {}), entries) << from;
  }
  EXPECT_EQ(Slurp(temp_ / "to/link") + Slurp(temp_ / "to/sub/b"), "newnew");
  EXPECT_FALSE(fs::is_symlink(temp_ / "to/link"));
}

TEST_F(CUtilTest, MakesTheFoldersAboveTheLastSlash) {
  Spit(temp_ / "file", "x");
  for (const auto& [path, result, made, notMade] :
       Table<const char*, BOOL, const char*, const char*>{{"a/b/c.txt", 1, "a/b", "a/b/c.txt"},
                                                          {"a/b/d", 1, "a/b", "a/b/d"},
                                                          {"e/f/", 1, "e/f", "e/f/x"},
                                                          {"g", 1, "", "g"},
                                                          {"file/a", 0, "file", "file/a"},
                                                          {"file/a/b", 0, "file", "file/a"}}) {
    EXPECT_EQ(CUtil::CreateDirectory((temp_ / path).c_str(), true), result) << path;
    EXPECT_TRUE(fs::exists(temp_ / made) && !fs::exists(temp_ / notMade)) << path;
  }
  EXPECT_EQ(CUtil::CreateDirectory("no folder", false), 1);
  EXPECT_FALSE(fs::exists("no folder"));
}

TEST_F(CUtilTest, DeletesWhatIsInAFolderAndTheFolderIfAsked) {
  fs::create_directories(temp_ / "full/sub");
  for (const char* name : {"full/a", "full/sub/b", "file"}) Spit(temp_ / name, "x");
  for (const auto& [name, removeSelf, result, stays] :
       Table<const char*, bool, bool, bool>{{"full", false, true, true},
                                            {"full/", true, true, false},
                                            {"full", false, true, false},
                                            {"full", true, false, false},
                                            {"file", false, true, true},
                                            {"file", true, true, false}}) {
    EXPECT_EQ(CUtil::DeleteDirectory((temp_ / name).c_str(), removeSelf), result) << name;
    EXPECT_EQ(fs::exists(temp_ / name), stays) << name;
    EXPECT_TRUE(!fs::is_directory(temp_ / name) || fs::is_empty(temp_ / name)) << name;
  }
}

TEST_F(CUtilTest, SavesDataAtAnOffsetOfAFile) {
  const auto save = [this](const char* name, const std::string& data, unsigned int offset) {
    return CUtil::SaveDataToFileInner((temp_ / name).c_str(),
                                      reinterpret_cast<const unsigned char*>(data.data()),
                                      static_cast<unsigned int>(data.size()), offset);
  };
  using namespace std::string_literals;
  for (const auto& [name, data, offset, result, content] :
       Table<const char*, std::string, unsigned int, int, std::string>{
           {"a/b/c", "01234", 0, 0, "01234"},
           {"a/b/c", "xy", 2, 0, "01xy4"},
           {"a/b/c", "z", 6, 0, "01xy4\0z"s},
           {"a/b/c", "", 3, 0, "01xy4\0z"s},
           {"a/b/c", "n", 0, 0, "n"},
           {"a/b/c", "", 0, 0, ""},
           {"a/new", "x", 1, 16, ""},
           {"a/b", "x", 0, 16, ""},
           {"a/b/c/d", "x", 0, 16, ""}}) {
    EXPECT_EQ(save(name, data, offset), result) << name << data;
    if (result == 0) {
      EXPECT_EQ(Slurp(temp_ / name), content) << name << data;
    }
  }
  EXPECT_FALSE(fs::exists(temp_ / "a/new"));
  EXPECT_EQ(CUtil::SaveDataToFileInner(nullptr, nullptr, 0, 0), 22);
  EXPECT_EQ(CUtil::SaveDataToFileInner(nullptr, nullptr, 0, 1), 16);

  const auto saveMuch = [&] { return save("a/b/c", std::string(5000, 'x'), 0); };
  EXPECT_EQ(ResultOf(Start(OnAFullDisk(saveMuch))), 16);
  EXPECT_FALSE(fs::exists(temp_ / "a/b/c")) << "half a file stays on a full disk";
}

TEST_F(CUtilTest, EditsTexts) {
  const auto edited = [](std::string text, auto edit) {
    edit(text.data());
    return std::string(text.c_str());
  };
  for (const auto& [text, ch, removed, trimmed, last] :
       Table<const char*, char, const char*, const char*, int>{
           {"17, 3, 0, 0531", ',', "17 3 0 0531", "17, 3, 0, 0531", 8},
           {"aab/aa", 'a', "b/", "aab/", 5},
           {"aa", 'a', "", "", 1},
           {"", 'a', "", "", -1},
           {"bc", 'a', "bc", "bc", -1},
           {"bc", '\0', "bc", "bc", -1}}) {
    EXPECT_EQ(edited(text, [ch = ch](char* s) { CUtil::RemoveChar(s, ch); }), removed);
    EXPECT_EQ(edited(text, [ch = ch](char* s) { CUtil::TrimRight(s, ch); }), trimmed);
    EXPECT_EQ(CUtil::ReverseFindChar(text, ch), last);
  }
  for (const auto& [name, trimmed] : Table<const char*, const char*>{
           {"a/\\ ", "a"}, {"a \\/", "a \\"}, {"a/ /", "a/ "}, {"/ ", ""}, {" a", " a"}}) {
    EXPECT_EQ(edited(name, &CUtil::TrimWindowsFileName), trimmed);
  }
  for (const auto& [text, from, to, replaced] :
       Table<std::string, const char*, const char*, const char*>{{"aaa", "aa", "a", "aa"},
                                                                 {"abab", "b", "bb", "abbabb"},
                                                                 {"abab", "ab", "", ""},
                                                                 {"abc", "x", "y", "abc"},
                                                                 {"abc", "", "y", "abc"}}) {
    std::string result = text;
    CUtil::find_and_replace(result, from, to);
    EXPECT_EQ(result, replaced) << text;
  }
}

TEST_F(CUtilTest, GivesHostNamesTheirAsciiForm) {
  const std::string longest(1023, 'a');
  for (const auto& [name, isGood, ascii] :
       Table<std::string, bool, std::string>{{"b\xC3\xBC"
                                              "cher.de",
                                              true, "xn--bcher-kva.de"},
                                             {"A_b.\xC3\x84.C.", true, "A_b.xn--4ca.C."},
                                             {"fa\xC3\x9F.de", true, "xn--fa-hia.de"},
                                             {"", true, ""},
                                             {longest, true, longest},
                                             {longest + "a", false, "kept"},
                                             {"\xFF.de", false, "kept"}}) {
    char out[1024] = "kept";
    EXPECT_EQ(CUtil::IdnToAscii(name.c_str(), out), isGood) << name;
    EXPECT_EQ(out, ascii);
  }
  char out[1024] = "kept";
  EXPECT_FALSE(CUtil::IdnToAscii(nullptr, out) || CUtil::IdnToAscii("a", nullptr));
}

TEST_F(CUtilTest, TellsPlaceTimeAndANewName) {
  char path[1025], folder[1024], one[1024], two[1024];
  CUtil::GetModulePath(path);
  CUtil::GetDllPath(folder);
  const fs::path self = OwnProgram();
  EXPECT_EQ(path, self);
  EXPECT_EQ(folder, self.parent_path().string() + "/");
  EXPECT_EQ(CUtil::CreateUUID(one) + CUtil::CreateUUID(two), 64);
  for (const char* name : {one, two}) {
    EXPECT_TRUE(std::regex_match(name, std::regex("[0-9a-f]{32}"))) << name;
  }
  EXPECT_STRNE(one, two);

  const std::time_t before = std::time(nullptr);
  const _SYSTEMTIME now = CUtil::GetLocalTime();
  std::tm local{};
  local.tm_year = now.wYear - 1900;
  local.tm_mon = now.wMonth - 1;
  local.tm_mday = now.wDay;
  local.tm_hour = now.wHour;
  local.tm_min = now.wMinute;
  local.tm_sec = now.wSecond;
  local.tm_isdst = -1;
  const std::time_t told = std::mktime(&local);
  EXPECT_TRUE(told >= before && told <= before + 5);
  EXPECT_TRUE(now.wMilliseconds < 1000 && now.wDayOfWeek == 0);
}

}  // namespace
