#include "os/text.h"

#include "support/testing.h"

TEST(Text, FollowsAsciiAlone) {
  using namespace std::string_literals;
  for (const auto& [text, lower, hasControl, hex] :
       Table<std::string, std::string, bool, const char*>{
           {"@AZ[`az{", "@az[`az{", false, "40415a5b60617a7b"},
           {"\xC4\xFF", "\xC4\xFF", false, "c4ff"},
           {"a\x1F", "a\x1F", true, "611f"},
           {"\x7F", "\x7F", true, "7f"},
           {"\0"s, "\0"s, true, "00"},
           {" ~", " ~", false, "207e"},
           {"", "", false, ""}}) {
    EXPECT_EQ(ascii::Lower(text), lower);
    EXPECT_EQ(ascii::HasControl(text), hasControl) << hex;
    EXPECT_EQ(ascii::Hex({reinterpret_cast<const unsigned char*>(text.data()), text.size()}), hex);
  }
}

TEST(Text, OfAnIdentifierIsNew) {
  std::vector<std::string> made;
  for (int i = 0; i < 100; ++i) made.emplace_back(MakeIdentifier().data());
  for (const std::string& name : made) {
    EXPECT_EQ(name.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(name.size(), kIdentifierLength);
  }
  std::sort(made.begin(), made.end());
  EXPECT_EQ(std::unique(made.begin(), made.end()), made.end());
}
