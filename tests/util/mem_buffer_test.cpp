#include "util/mem_buffer.h"

#include <cstdlib>

#include "platform/global_memory.h"
#include "support/testing.h"

namespace {

unsigned char* Bytes(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

TEST(MemBuffer, GrowsByStepsAndKeepsItsContentWhenItCannot) {
  CMemBuffer stream(1024);
  std::string content;
  for (const std::uint32_t count : {1u, 1023u, 4096u}) {
    const std::string more(count, static_cast<char>('a' + count % 7));
    EXPECT_EQ(stream.Write(more.data(), count), count);
    content += more;
  }
  EXPECT_EQ(stream.Write("x", UINT32_MAX), 0u) << "the end wraps";
  std::string read(stream.GetLength(), '?');
  stream.Seek(0, 0);
  EXPECT_EQ(stream.Read(read.data(), stream.GetLength()), content.size());
  EXPECT_EQ(read, content);
  EXPECT_EQ(stream.Read(read.data(), 1), 0u);
}

// The address sanitizer tells a block that stays, or one that is freed twice.
TEST(MemBuffer, FreesItsOwnBlocksAndNoOthers) {
  char foreign[4] = "abc";
  for (const bool closes : {true, false}) {
    for (void* block : {std::malloc(4), GlobalAlloc(GMEM_FIXED, 4), static_cast<void*>(foreign)}) {
      CMemBuffer stream(0);
      const signed char owns = block != foreign;
      EXPECT_EQ(stream.Attach(static_cast<unsigned char*>(block), 4, owns, 0), 4u);
      if (closes) stream.Close();
      EXPECT_EQ(stream.GetLength(), closes ? 0u : 4u);
    }
  }
  CMemBuffer stream(16);
  stream.Write("xy", 2);
  void* handle = stream.Handle();
  unsigned char* block = stream.Detach();
  EXPECT_EQ(block, GlobalLock(handle)) << "the block was freed";
  EXPECT_EQ(stream.Write("z", 1), 1u) << "and the stream takes a new one";
  GlobalFree(static_cast<char**>(handle));
  for (const char* text : {"", "copied"}) {
    CMemBuffer source(16);
    source.WriteStringContent(text);
    unsigned char* copy = source.DetachEx();
    EXPECT_EQ(std::string(reinterpret_cast<char*>(copy), GlobalSize(copy)),
              *text != '\0' ? text : std::string(1, '\0'));
    EXPECT_EQ(source.GetLength(), 0u);
    GlobalFree(copy);
  }
}

TEST(MemBuffer, SeeksAndCutsWithinItsBounds) {
  for (const auto& [growStep, offset, origin, position] :
       Table<std::uint32_t, std::int64_t, std::uint32_t, std::uint32_t>{{0, 3, 0, 3},
                                                                        {0, 2, 1, 7},
                                                                        {0, -5, 1, 0},
                                                                        {0, -6, 1, 5},
                                                                        {0, -3, 2, 7},
                                                                        {0, 5, 2, 5},
                                                                        {0, 1, 3, 5},
                                                                        {0, 100, 0, 10},
                                                                        {16, 100, 0, 100},
                                                                        {16, 1LL << 32, 0, 10},
                                                                        {16, INT64_MAX, 1, 5}}) {
    std::string content = "0123456789";
    CMemBuffer stream(growStep);
    if (growStep == 0) {
      stream.Attach(Bytes(content), 10, 0, 0);
    } else {
      stream.Write(content.data(), 10);
    }
    stream.Seek(5, 0);
    EXPECT_EQ(stream.Seek(offset, origin), position) << offset << " from " << origin;
    EXPECT_EQ(stream.GetLength(), 10u) << "a seek changes no length";
    EXPECT_EQ(stream.Write("x", 1), position < 10 || growStep != 0 ? 1u : 0u);
    EXPECT_TRUE(stream.SetLength(2));
    EXPECT_EQ(stream.GetPosition(), position == 0 ? 1u : 2u);
    EXPECT_EQ(stream.SetLength(200), growStep != 0);
    EXPECT_EQ(stream.GetLength(), growStep != 0 ? 200u : 2u);
  }
}

TEST(MemBuffer, WritesStringsThatItReads) {
  CMemBuffer stream(16);
  EXPECT_TRUE(stream.WriteString("text"));
  EXPECT_TRUE(stream.WriteString("b\0ytes", 6));
  EXPECT_TRUE(stream.WriteString(static_cast<const char*>(nullptr)));
  EXPECT_FALSE(stream.WriteString(nullptr, 1));
  stream.Seek(0, 0);
  for (const std::string& text : {std::string("text"), std::string("b\0ytes", 6)}) {
    char* read = nullptr;
    ASSERT_TRUE(stream.ReadStringEx(&read, 0, -1));
    EXPECT_EQ(std::string(read, text.size() + 1), text + '\0');
    GlobalFree(static_cast<void*>(read));
  }
  char* none = nullptr;
  EXPECT_TRUE(stream.ReadStringEx(&none, 0, -1));
  EXPECT_EQ(none, nullptr);
  EXPECT_FALSE(stream.ReadStringEx(nullptr, 0, -1));
  stream.Seek(0, 0);
  EXPECT_TRUE(stream.ReadString(nullptr, -1)) << "without a buffer it skips";
  EXPECT_EQ(stream.GetPosition(), 8u);
}

TEST(MemBuffer, ReadsStringsAndRefusesDamagedOnes) {
  using namespace std::string_literals;
  for (auto [stored, maxLength, read, text, position] :
       Table<std::string, std::int32_t, bool, std::string, std::uint32_t>{
           {"\6\0\0\0abcdef"s, 4, true, "abcd", 8},
           {"\6\0\0\0abcdef"s, -2, false, "", 0},
           {"\7\0\0\0abcdef"s, 6, true, "abcdef", 10},
           {"\7\0\0\0abcdef"s, -1, false, "", 0},
           {"\377\377\377\177abcdef"s, -1, false, "", 0},
           {"\0\0\0\0"s, -1, true, "", 4},
           {"\0\0\0"s, -1, false, "", 0}}) {
    const std::string what = testing::PrintToString(stored) + " " + std::to_string(maxLength);
    CMemBuffer stream(Bytes(stored), static_cast<std::uint32_t>(stored.size()), 0, 0);
    std::string target(12, '.');
    EXPECT_EQ(stream.ReadString(target.data(), 2, maxLength), read) << what;
    EXPECT_EQ(target, ".." + text + std::string(10 - text.size(), '.')) << what;
    EXPECT_EQ(stream.GetPosition(), position) << what;
  }
  // A negative length is refused however much is left; none of it is touched.
  std::string stored = "\xf0\xff\xff\xff";
  CMemBuffer endless(Bytes(stored), UINT32_MAX, 0, 0);
  EXPECT_FALSE(endless.ReadString(nullptr, -1));
}

}  // namespace
