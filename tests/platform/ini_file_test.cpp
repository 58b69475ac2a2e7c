#include "platform/ini_file.h"

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
