#include "platform/ini_file.h"

#include <clocale>
#include <functional>
#include <sstream>

#include "support/testing.h"

using namespace std::string_literals;

TEST(IniFile, GrammarDecidesWhatIsKeptAndInWhichOrder) {
  for (const auto& [what, text, kept] : Table<const char*, std::string, std::string>{
           {"keys before a header are dropped", "a=1\n[S]\nb=2", "[S]\nb=2\n"},
           {"a byte order mark", "\xEF\xBB\xBF[S]\na=1\n\xEF\xBB\xBF[T]\n", "[S]\na=1\n"},
           {"CRLF and blanks", "\t[ S ]\r\na=1\r\n b = 2 \r\n\r\n", "[S]\na=1\nb= 2 \n"},
           {"blanks behind a header keep its bracket", "[abc]  \nk=1\n", "[abc]]\nk=1\n"},
           {"equals signs", "[S]\n=x\n =y\na=b=c\nkey=\n", "[S]\na=b=c\nkey=\n"},
           {"first spelling, last value", "[One]\na=1\n[two]\n[ONE]\nA=2\nB=3\nb=4",
            "[One]\na=2\nB=4\n[two]\n"},
           {"comments", "; c\n[S]\n; c\n; d=1\n#k=2\nplain\n", "[S]\n#k=2\n; d=1\n"},
           {"brackets", "[]\na=1\n[x=1\n[y\n]\n[[z]]\nb=2", "[]\n[x=1\na=1\n[[z]]\nb=2\n"},
           {"only the end of a line is cut", "[S]\na=x\ry\r\r\nb=z\r \r", "[S]\na=x\ry\nb=z\r \n"},
           {"a name ends at a NUL", "[S]\na\0x=1\nA=2\n"s, "[S]\na\0x=2\n"s},
           {"letters order as lower case", "[S]\nab_=3\nAB=2\nA_=1", "[S]\nA_=1\nAB=2\nab_=3\n"},
           {"other bytes have no case", "[S]\n\xC4=1\n\xE4=2", "[S]\n\xC4=1\n\xE4=2\n"}}) {
    CIniFileA file;
    file.Parse(text);
    EXPECT_EQ(file.Text(), kept) << what;
  }
}

/// What both widths of the model do alike, over names whose order is the same in both.
template <class File>
void EditAndCompare() {
  using String = typename File::String;
  using Stream = std::basic_stringstream<typename String::value_type>;
  const auto w = [](std::string_view text) { return String(text.begin(), text.end()); };
  const TempFolder folder;
  const String path = w(folder / "x.ini");
  File file;
  String expected;
  Stream stream;
  const auto section = [&](const char* name) { return file.GetSection(w(name)); };
  const auto load = [&](const char* text, bool merge) {
    stream = Stream(w(text));
    merge ? stream >> typename File::Merge(file) : stream >> file;
    return true;
  };
  using Step = std::function<bool()>;
  for (const auto& [what, step, result, text] : Table<const char*, Step, bool, const char*>{
           {"a value makes section and key",
            [&] {
              file.SetKeyValue(w(" s\t"), w("\tb "), w(" v "));
              return file.AddSection(w("t")) != nullptr;
            },
            true, "[s]\nb= v \n[t]\n"},
           {"what is there is not made again",
            [&] {
              return file.AddSection(w("s\t")) == section(" s") &&
                     section("s")->AddKey(w(" b")) == section("s")->GetKey(w("b\t"));
            },
            true, nullptr},
           {"nothing is found", [&] { return section("x") || section("s")->GetKey(w("x")); }, false,
            nullptr},
           {"to its own name", [&] { return file.RenameKey(w("s"), w("b"), w(" b")); }, false,
            nullptr},
           {"no section", [&] { return file.RenameKey(w("x"), w("b"), w("c")); }, false, nullptr},
           {"no key", [&] { return file.RenameKey(w("s"), w("x"), w("c")); }, false, nullptr},
           {"a second key", [&] { return section("s")->AddKey(w("c"))->GetValue().empty(); }, true,
            "[s]\nb= v \nc=\n[t]\n"},
           {"onto another key", [&] { return file.RenameKey(w("s"), w("b"), w("c")); }, false,
            nullptr},
           {"in order again", [&] { return file.RenameKey(w("s"), w("b"), w(" d ")); }, true,
            "[s]\nc=\nd= v \n[t]\n"},
           {"found by its new name alone",
            [&] { return section("s")->GetKey(w("d")) && !section("s")->GetKey(w("b")); }, true,
            nullptr},
           {"onto another section", [&] { return file.RenameSection(w("s"), w("t")); }, false,
            nullptr},
           {"no section", [&] { return file.RenameSection(w("x"), w("y")); }, false, nullptr},
           {"a section", [&] { return file.RenameSection(w("t"), w("\ta")); }, true,
            "[a]\n[s]\nc=\nd= v \n"},
           {"an empty value is one",
            [&] { return file.GetKeyValue(w("s"), w("c"), w("x")).empty(); }, true, nullptr},
           {"a default",
            [&] {
              return file.GetKeyValue(w("s"), w("x"), w("y")) == w("y") &&
                     file.GetKeyValue(w("x"), w("c"), w("y")) == w("y") &&
                     (file.GetKeyValue(w("s"), w("x")) + section("s")->GetKeyValue(w("x"))).empty();
            },
            true, nullptr},
           {"saved and merged",
            [&] {
              if (!file.Save(path)) return false;
              load("[s]\nc=1\n[b]\n", true);
              return file.Load(path, true);
            },
            true, "[a]\n[b]\n[s]\nc=\nd= v \n"},
           {"loaded instead", [&] { return file.Load(path); }, true, "[a]\n[s]\nc=\nd= v \n"},
           {"nothing to load", [&] { return file.Load(path + w("x")); }, false, nullptr},
           {"nowhere to save", [&] { return file.Save(w(folder.path())); }, false, nullptr},
           {"removed by name, once",
            [&] {
              section("s")->RemoveKey(w("\tc "));
              section("s")->RemoveKey(w("c"));
              section("s")->RemoveKey(nullptr);
              file.RemoveSection(w(" a"));
              file.RemoveSection(w("a"));
              file.RemoveSection(nullptr);
              return true;
            },
            true, "[s]\nd= v \n"},
           {"a key of another section",
            [&] {
              section("s")->RemoveKey(file.AddSection(w("z"))->AddKey(w("d")));
              return true;
            },
            true, "[s]\nd= v \n[z]\nd=\n"},
           {"removed by pointer",
            [&] {
              section("z")->RemoveKey(section("z")->GetKey(w("d")));
              file.RemoveSection(section("s"));
              return true;
            },
            true, "[z]\n"},
           {"all keys",
            [&] {
              load("[k]\na=1\nb=2\n", false);
              EXPECT_EQ(section("k")->GetKeys().size(), 2u);
              section("k")->RemoveAllKeys();
              return file.GetSections().size() == 1;
            },
            true, "[k]\n"},
           {"all sections",
            [&] {
              file.RemoveAllSections();
              return file.GetSections().empty();
            },
            true, ""}}) {
    EXPECT_EQ(step(), result) << what;
    stream = Stream();
    stream << file;
    if (text != nullptr) expected = w(text);
    EXPECT_TRUE(stream.str() == expected) << what << ", wants " << (text ? text : "no change");
  }
}

TEST(IniFile, IsEditedAlikeInBothWidths) {
  EditAndCompare<CIniFileA>();
  EditAndCompare<CIniFileW>();
}

TEST(IniFile, WideNamesHaveCaseAndAreEqualToTheirBeginnings) {
  CIniFileW file;
  file.Parse(L"[S]\nPorts=1\nport=2\n[s]\nPort=3\nPortal=4\n[Sub]\nx=y\n");
  EXPECT_EQ(file.Text(), L"[S]\nPorts=1\nport=2\nx=y\n[s]\nPort=4\n");
  EXPECT_EQ(file.GetKeyValue(L"S", L"Port"), L"1");
  EXPECT_FALSE(file.RenameKey(L"S", L"port", L"Port"));
  CIniFileA narrow;
  narrow.Parse("[S]\nPort=1\nPorts=2\n");
  EXPECT_EQ(narrow.GetKeyValue("s", "port"), "1");
  EXPECT_TRUE(narrow.GetSection("S")->GetKey("PORTS")->SetKeyName("Q"));
}

TEST(IniFile, TextsAreTrimmedAndConverted) {
  for (const auto& [text, left, right, both] :
       Table<std::string, std::string, std::string, std::string>{
           {" a b\t", "a b\t", " a b", "a b"}, {"\t ", "", "", ""}, {"", "", "", ""}}) {
    const auto trimmed = [&text = text](auto trim) {
      std::string copy = text;
      trim(copy);
      return copy;
    };
    EXPECT_EQ(trimmed([](std::string& copy) { LTrim(copy, " \t"); }), left);
    EXPECT_EQ(trimmed([](std::string& copy) { RTrim(copy, " \t"); }), right);
    EXPECT_EQ(trimmed([](std::string& copy) { Trim(copy, " \t"); }), both);
  }
  const std::string before = std::setlocale(LC_CTYPE, nullptr);
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  for (const auto& [wide, narrow] : Table<std::wstring, std::string>{{L"abc", "abc"},
                                                                     {L"\u00e4bc",
                                                                      "\xC3\xA4"
                                                                      "b"},
                                                                     {L"a\u00e4", "a"},
                                                                     {L"", ""}}) {
    EXPECT_EQ(wstr_to_str(wide), narrow) << "cut where the units end";
  }
  EXPECT_EQ(str_to_wstr("\xC3\xA4"
                        "b"),
            L"\u00e4b");
  EXPECT_EQ(str_to_wstr("a\xFF"), L"");
  std::setlocale(LC_CTYPE, before.c_str());
}
