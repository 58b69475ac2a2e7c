#include "platform/desktop_stubs.h"

#include "support/testing.h"

TEST(DesktopStubs, AnswerAsADesktopThatShowsNothing) {
  EXPECT_EQ(MessageBoxEx(nullptr, "text", "caption", 0, 0), 1);
  EXPECT_EQ(MessageBox(nullptr, "text", "caption", 0), 0);
  EXPECT_EQ(IsBadReadPtr(nullptr, 1), 0);
  EXPECT_EQ(NSColorToRGB(nullptr), 0u);
  DrainPool(nullptr);
  ReleaseImage(nullptr);
  for (const void* found :
       {GetWindow(nullptr, 0), GetParent(nullptr), GetModuleHandle("x"), RGBToNSColor(1),
        CreateAutoReleasePool(), CloneImage(nullptr, 1, 1, 1), GetCurentActivateApp()}) {
    EXPECT_EQ(found, nullptr);
  }
}

TEST(DesktopStubs, OrderColoursAsNumbersOfThreeBytes) {
  for (const auto& [left, right, order] : Table<const char*, const char*, int>{
           {"\1\2\3", "\1\2\3", 0}, {"\1\2\3", "\1\2\4", -1}, {"\2\0\0", "\1\377\377", 1}}) {
    const int compared = CompareColor(left, right);
    EXPECT_EQ((compared > 0) - (compared < 0), order);
  }
  std::string quads =
      "\xFF\1\1d"
      "\1\xFF\1c"
      "\1\1\2b"
      "\1\1\1a";
  SortColor(quads.data(), 4);
  EXPECT_EQ(quads,
            "\1\1\1a"
            "\1\1\2b"
            "\1\xFF\1c"
            "\xFF\1\1d");
  SortColor(nullptr, 4);
}
