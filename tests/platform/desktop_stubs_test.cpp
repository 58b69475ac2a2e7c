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
  EXPECT_EQ(CompareColor("\1\2\3", "\1\2\3"), 0);
  EXPECT_LT(CompareColor("\1\2\3", "\1\2\4"), 0);
  EXPECT_GT(CompareColor("\2\0\0", "\1\377\377"), 0);
  std::string quads = "\377\1\1d\1\377\1c\1\1\2b\1\1\1a";
  SortColor(quads.data(), 4);
  EXPECT_EQ(quads, "\1\1\1a\1\1\2b\1\377\1c\377\1\1d");
  SortColor(nullptr, 4);
}
