#include "os/process.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/testing.h"

namespace {

/// What a shell script that is started with these options writes to `told`, "" when it does not
/// start.
std::string Told(const std::string& script, const os::ProcessOptions& options,
                 const std::string& told) {
  pid_t child = 0;
  if (os::StartProgram({"sh", "-c", script, told}, options, &child) != 0) return "";
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return Slurp(told);
}

TEST(StartProgram, GivesAProgramWhatTheOptionsSay) {
  const TempFolder temp;
  const std::string told = temp / "told", output = temp / "output";
  ::setenv("QV_OF_THE_TEST", "inherited", 1);
  os::ProcessOptions options;
  const char* variable = "echo \"$QV_OF_THE_TEST\" >\"$0\"";
  EXPECT_EQ(Told(variable, options, told), "inherited\n");
  options.environment.emplace();
  EXPECT_EQ(Told(variable, options, told), "\n");
  options.environment = std::vector<std::string>(1, "QV_OF_THE_TEST=given");
  EXPECT_EQ(Told(variable, options, told), "given\n");
  ::unsetenv("QV_OF_THE_TEST");

  options = {};
  options.folder = temp / "";
  EXPECT_EQ(Told("pwd -P >\"$0\"", options, told), fs::canonical(temp / "").string() + "\n");
  options.folder = temp / "missing";
  EXPECT_EQ(Told("", options, told), "");

  options = {};
  options.output = output;
  Spit(output, "before\n");
  Told("cat; echo out; echo error >&2", options, told);
  EXPECT_EQ(Slurp(output), "before\nout\nerror\n");
  // A pipe that nobody reads would keep the program waiting for ever.
  options.output = temp / "pipe";
  ASSERT_EQ(::mkfifo(options.output.c_str(), 0600), 0);
  EXPECT_EQ(Told("echo lost; echo ran >\"$0\"", options, told), "ran\n");
}

TEST(StartProgram, DetachesFromSessionAndSignals) {
  const TempFolder temp;
  os::ProcessOptions options;
  options.output = temp / "told";
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto handler = std::signal(SIGUSR2, SIG_IGN);
  const std::string script =
      "import os, signal as s; print(os.getsid(0) == os.getpid(), "
      "s.SIGUSR1 in s.pthread_sigmask(s.SIG_BLOCK, []), s.getsignal(s.SIGUSR2) == s.SIG_IGN)";
  for (const bool detached : {false, true}) {
    Spit(options.output, "");
    options.detached = detached;
    pid_t child = 0;
    int status = 0;
    EXPECT_EQ(os::StartProgram({"python3", "-c", script}, options, &child), 0);
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(Slurp(options.output), detached ? "True False False\n" : "False True True\n");
  }
  std::signal(SIGUSR2, handler);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(ChildProcess, LeavesNoZombieAndOutlivesItsStarter) {
  const TempFolder temp;
  const std::string mark = temp / "pid";
  const std::string script = "echo $$ >\"$0\".tmp; mv \"$0\".tmp \"$0\"; ";
  const auto pid = [&] { return std::atoi(Slurp(mark).c_str()); };
  {
    ChildProcess child;
    EXPECT_TRUE(child.EndsWithin({})) << "none was started";
    EXPECT_EQ(child.Start({"sh", "-c", script, mark}), 0);
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(mark); }));
    EXPECT_TRUE(WaitUntil([&] { return ::kill(pid(), 0) != 0; })) << "a zombie could be signalled";
    EXPECT_TRUE(child.EndsWithin({}));
    EXPECT_EQ(child.Start({"sleep", "0.1"}), 0);
    EXPECT_TRUE(child.EndsWithin(std::chrono::seconds(20)));
    fs::remove(mark);
    EXPECT_EQ(child.Start({"sh", "-c", script + "exec sleep 600", mark}), 0);
    EXPECT_EQ(child.Start({"true"}), EBUSY);
    EXPECT_FALSE(child.EndsWithin(std::chrono::milliseconds(20)));
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(mark); }));
    EXPECT_EQ(::getsid(pid()), pid()) << "an interrupt for the service would end it";
  }
  EXPECT_EQ(::kill(pid(), SIGKILL), 0) << "it did not outlive its starter";
}

}  // namespace
