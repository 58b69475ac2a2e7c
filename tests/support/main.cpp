// The main function of every gtest program.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/temp_folder.h"

int main(int argc, char** argv) {
  if (const auto result = RunInTempFolder(argv)) return *result;
  ::testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  if (::testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
    std::fprintf(stderr, "the filter selects no test\n");
    return 1;
  }
  return result;
}
