#include "os/process.h"

#include <csignal>

#include "support/testing.h"

namespace {

TEST(ChildProcess, LeavesNoZombieAndOutlivesItsStarter) {
  const TempFolder temp;
  const std::string mark = temp / "pid";
  const std::string script = "echo $$ >\"$0\".tmp; mv \"$0\".tmp \"$0\"; ";
  const auto pid = [&] { return std::atoi(Slurp(mark).c_str()); };
  {
    ChildProcess child;
    EXPECT_EQ(child.Start({"sh", "-c", script, mark}), 0);
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(mark); }));
    EXPECT_TRUE(WaitUntil([&] { return ::kill(pid(), 0) != 0; })) << "a zombie could be signalled";
    fs::remove(mark);
    EXPECT_EQ(child.Start({"sh", "-c", script + "exec sleep 600", mark}), 0);
    EXPECT_EQ(child.Start({"true"}), EBUSY);
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(mark); }));
  }
  EXPECT_EQ(::kill(pid(), SIGKILL), 0) << "it did not outlive its starter";
}

}  // namespace
