#include "platform/ini_file.h"

#include <sstream>

#include "support/testing.h"

using namespace std::string_literals;

TEST(IniFile, GrammarDecidesWhatIsKeptAndInWhichOrder) {
  for (const auto& [what, text, kept] : Table<const char*, std::string, std::string>{
           {"keys before a header are dropped", "a=1\n[S]\nb=2", "[S]\nb=2\n"},
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

TEST(IniFile, EntriesAreAddedFoundRenamedAndRemoved) {
  CIniFileA file;
  auto* section = file.AddSection(" Net\t");
  EXPECT_EQ(file.AddSection("NET"), section);
  file.SetKeyValue("net", "\tPort ", "80");
  file.SetKeyValue("net", "Host", "");
  auto* port = section->GetKey("PORT");
  ASSERT_NE(port, nullptr);
  EXPECT_FALSE(port->SetKeyName("HOST"));
  EXPECT_FALSE(port->SetKeyName("port")) << "an entry stands in its own way";
  EXPECT_TRUE(file.RenameKey("net", "port", " Address ") && file.RenameSection("NET", "Web"));
  EXPECT_EQ(section->GetKey("address"), port) << "renaming keeps the entry itself";
  CIniFileA other;
  other.AddSection("Web")->AddKey("Host");
  file.RemoveSection(other.GetSection("Web"));
  section->RemoveKey(other.GetSection("Web")->GetKey("Host"));
  EXPECT_EQ(file.Text(), "[Web]\nAddress=80\nHost=\n") << "entries of another file are not ours";
}

TEST(IniFile, LoadingMergesOrReplacesAndAFailureChangesNothing) {
  const TempFolder folder;
  CIniFileA file;
  file.Parse("[S]\na=old\nb=old\n");
  EXPECT_FALSE(file.Load(folder / "missing"));
  std::istringstream more("[s]\nA=new\n");
  more >> CIniFileA::CIniMergeA(file);
  EXPECT_EQ(file.Text(), "[S]\na=new\nb=old\n");
  Spit(folder / "more.ini", more.str());
  ASSERT_TRUE(file.Load(folder / "more.ini"));
  EXPECT_EQ(file.Text(), "[s]\nA=new\n");
}

TEST(WideIniFile, NamesHaveCaseAndMatchTheirBeginnings) {
  const TempFolder folder;
  CIniFileW file;
  file.SetKeyValue(L"S", L"Ports", L"1");
  EXPECT_EQ(file.GetKeyValue(L"S", L"port", L"none"), L"none");
  file.SetKeyValue(L"S", L"Port", L"2");
  CIniFileW again;
  ASSERT_TRUE(file.Save(str_to_wstr(folder / "w")) && again.Load(str_to_wstr(folder / "w")));
  EXPECT_EQ(again.Text(), L"[S]\nPorts=2\n");
}
