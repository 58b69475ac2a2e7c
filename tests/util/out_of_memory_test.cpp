// What is left when memory ends: no helper throws, each tells by its result. Every call is tried
// with the first allocation failing, then the second, until it needs no more.
#include "support/scarce_memory.h"
#include "support/testing.h"
#include "util/cutil.h"
#include "util/mem_buffer.h"
#include "util/reader_writer_lock.h"

namespace {

TEST(OutOfMemory, FailsWithoutThrowing) {
  const TempFolder temp;
  const std::string from = temp / "a folder with a long name/from/", to = temp / "to/";
  fs::create_directories(from + "sub");
  Spit(from + "sub/file", "x");
  EXPECT_GT(FailuresOf([&] { return CUtil::CopyDirectoryFiles(from.c_str(), to.c_str(), true); }),
            0);
  EXPECT_EQ(Slurp(to + "sub/file"), "x");
  const std::string deep = to + "new folder with a long name/deep/";
  EXPECT_GT(FailuresOf([&] { return CUtil::CreateDirectory(deep.c_str(), true) != 0; }), 0);
  EXPECT_TRUE(fs::is_directory(deep));
  EXPECT_GT(FailuresOf([&] { return CUtil::DeleteDirectory(to.c_str(), true); }), 0);
  EXPECT_FALSE(fs::exists(to));

  std::string text = "an x among many letters";
  const std::string replacement = "a replacement that needs room of its own";
  const auto replace = [&] {
    CUtil::find_and_replace(text, "x", replacement);
    return text.size() > 30;
  };
  EXPECT_GT(FailuresOf(replace), 0);
  EXPECT_EQ(text, "an " + replacement + " among many letters");
  char out[1024];
  const std::string host = Times(20, "label.");
  EXPECT_GT(FailuresOf([&] { return CUtil::IdnToAscii(host.c_str(), out); }), 0);
  EXPECT_EQ(out, host);
}

TEST(OutOfMemory, LeavesLocksAndStreamsAsTheyWere) {
  CReaderWriterLock lock;
  EXPECT_EQ(FailuresOf([&] { return lock.AcquireReaderLock(0); }), 1);
  EXPECT_EQ(lock.GetCurrentThreadStatus(), 1u);
  lock.ReleaseReaderLock();
  CReaderWriterLock other;
  const auto hold = [&] {
    try {
      const WriteHold held(other);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  };
  EXPECT_EQ(FailuresOf(hold), 1) << "a hold that was not had must not look like one";
  EXPECT_EQ(other.GetCurrentThreadStatus(), 0u);

  CMemBuffer stream(16);
  EXPECT_GT(FailuresOf([&] { return stream.WriteStringContent("text"); }), 0);
  EXPECT_EQ(stream.GetLength(), 4u);
}

}  // namespace
