#include "platform/file.h"

#include <fstream>

#include "support/testing.h"

TEST(File, CopyLeavesALibraryThatIsInUseWhole) {
  const TempFolder folder;
  const std::string target = folder / "target";
  Spit(folder / "source", "new");
  Spit(target, "old and longer");
  std::ifstream inUse(target);
  EXPECT_EQ(CopyFile((folder / "source").c_str(), target.c_str(), 1), 1);
  EXPECT_EQ(Slurp(target), "new");
  std::string line;
  EXPECT_TRUE(std::getline(inUse, line));
  EXPECT_EQ(line, "old and longer");
}
