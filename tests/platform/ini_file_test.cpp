#include "platform/ini_file.h"

#include <clocale>
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
  const auto section = [&](const char* name) { return file.GetSection(w(name)); };
  const auto holds = [&](const char* text) {
    Stream stream;
    stream << file;
    return stream.str() == w(text);
  };
  file.SetKeyValue(w(" s\t"), w("\tb "), w(" v "));
  EXPECT_NE(file.AddSection(w("t")), nullptr);
  EXPECT_TRUE(holds("[s]\nb= v \n[t]\n"));
  EXPECT_EQ(file.AddSection(w("s\t")), section(" s")) << "what is there is not made again";
  EXPECT_EQ(section("s")->AddKey(w(" b")), section("s")->GetKey(w("b\t")));
  EXPECT_FALSE(section("x") || section("s")->GetKey(w("x")));

  EXPECT_TRUE(section("s")->AddKey(w("c"))->GetValue().empty());
  for (const auto& [in, from, to] : Table<const char*, const char*, const char*>{
           {"s", "b", " b"}, {"s", "b", "c"}, {"s", "x", "d"}, {"x", "b", "d"}}) {
    EXPECT_FALSE(file.RenameKey(w(in), w(from), w(to))) << from << to;
  }
  EXPECT_TRUE(file.RenameKey(w("s"), w("b"), w(" d ")));
  EXPECT_TRUE(section("s")->GetKey(w("d")) && !section("s")->GetKey(w("b")));
  EXPECT_FALSE(file.RenameSection(w("s"), w("t")) || file.RenameSection(w("x"), w("y")));
  EXPECT_TRUE(file.RenameSection(w("t"), w("\ta")));
  EXPECT_TRUE(holds("[a]\n[s]\nc=\nd= v \n")) << "in order again";

  EXPECT_TRUE(file.GetKeyValue(w("s"), w("c"), w("x")).empty()) << "an empty value is one";
  EXPECT_TRUE(file.GetKeyValue(w("s"), w("x"), w("y")) == w("y"));
  EXPECT_TRUE(file.GetKeyValue(w("x"), w("c"), w("y")) == w("y"));
  EXPECT_TRUE((file.GetKeyValue(w("s"), w("x")) + section("s")->GetKeyValue(w("x"))).empty());

  EXPECT_TRUE(file.Save(path));
  EXPECT_FALSE(file.Save(w(folder.path())) || file.Load(path + w("x")));
  Stream(w("[s]\nc=1\n[b]\n")) >> typename File::Merge(file);
  EXPECT_TRUE(file.Load(path, true));
  EXPECT_TRUE(holds("[a]\n[b]\n[s]\nc=\nd= v \n")) << "merged";
  EXPECT_TRUE(file.Load(path));
  EXPECT_TRUE(holds("[a]\n[s]\nc=\nd= v \n")) << "loaded instead";

  for (int i = 0; i < 2; ++i) {  // the second time there is nothing to remove
    section("s")->RemoveKey(w("\tc "));
    file.RemoveSection(w(" a"));
  }
  section("s")->RemoveKey(nullptr);
  file.RemoveSection(nullptr);
  section("s")->RemoveKey(file.AddSection(w("z"))->AddKey(w("d")));
  EXPECT_TRUE(holds("[s]\nd= v \n[z]\nd=\n")) << "a key of another section";
  section("z")->RemoveKey(section("z")->GetKey(w("d")));
  file.RemoveSection(section("s"));
  EXPECT_TRUE(holds("[z]\n"));
  Stream(w("[k]\na=1\nb=2\n")) >> file;
  EXPECT_EQ(section("k")->GetKeys().size(), 2u);
  section("k")->RemoveAllKeys();
  EXPECT_TRUE(holds("[k]\n"));
  file.RemoveAllSections();
  EXPECT_TRUE(file.GetSections().empty() && holds(""));
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
       Table<std::string, const char*, const char*, const char*>{
           {" a b\t", "a b\t", " a b", "a b"}, {"\t ", "", "", ""}, {"", "", "", ""}}) {
    std::string first = text, last = text, all = text;
    LTrim(first, " \t");
    RTrim(last, " \t");
    Trim(all, " \t");
    EXPECT_EQ((std::vector{first, last, all}), (std::vector<std::string>{left, right, both}));
  }
  const std::string before = std::setlocale(LC_CTYPE, nullptr);
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  const std::string aeB =
      "\xC3\xA4"
      "b";
  for (const auto& [wide, narrow] : Table<std::wstring, std::string>{
           {L"abc", "abc"}, {L"\u00e4bc", aeB}, {L"a\u00e4", "a"}, {L"", ""}}) {
    EXPECT_EQ(wstr_to_str(wide), narrow) << "cut where the units end";
  }
  EXPECT_EQ(str_to_wstr(aeB), L"\u00e4b");
  EXPECT_EQ(str_to_wstr("a\xFF"), L"");
  std::setlocale(LC_CTYPE, before.c_str());
}
