#include "util/mem_buffer.h"

#include "platform/global_memory.h"
#include "support/testing.h"

namespace {

/// A stream that shows its room and refuses growth on demand.
class OpenBuffer : public CMemBuffer {
 public:
  using CMemBuffer::CMemBuffer;
  unsigned char* Realloc(unsigned char* block, std::uint32_t size) override {
    return full ? nullptr : CMemBuffer::Realloc(block, size);
  }
  std::uint32_t capacity() const { return capacity_; }

  bool full = false;
};

unsigned char* Bytes(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

std::string Content(CMemBuffer& stream) {
  std::string content(stream.GetLength(), '?');
  stream.Seek(0, 0);
  EXPECT_EQ(stream.Read(content.data(), stream.GetLength()), stream.GetLength());
  return content;
}

TEST(MemBuffer, GrowsByWholeStepsAndKeepsItsContentWhenItCannot) {
  OpenBuffer stream(1024);
  const std::string kilobytes(4096, 'x');
  for (const auto& [count, capacity] : {std::pair{1u, 1024u}, {1023u, 1024u}, {4096u, 5120u}}) {
    EXPECT_EQ(stream.Write(kilobytes.data(), count), count);
    EXPECT_EQ(stream.capacity(), capacity);
  }
  EXPECT_EQ(stream.Write("x", UINT32_MAX), 0u) << "the end wraps";
  stream.full = true;
  EXPECT_EQ(stream.Write("x", 1), 0u);
  EXPECT_FALSE(stream.SetLength(5121));
  EXPECT_EQ(stream.Seek(10000, 0), 5120u) << "no room: as far as the content goes";
  EXPECT_EQ(Content(stream), std::string(5120, 'x'));

  OpenBuffer coarse(0x90000000);
  EXPECT_FALSE(coarse.GrowFile(0x90000001)) << "two steps are more than 32 bits";
}

TEST(MemBuffer, WrapsABlockThatDoesNotGrow) {
  std::string block = "0123456789";
  CMemBuffer stream(Bytes(block), 10, 0, 0);
  stream.Seek(0, 2);
  EXPECT_EQ(stream.Write("x", 1), 0u);
  EXPECT_EQ(stream.Attach(Bytes(block), 10, 0, 8), 0u);
  EXPECT_EQ(stream.Write("abc", 3), 3u);
  EXPECT_EQ(stream.Write("defghijkl", 9), 0u);
  EXPECT_TRUE(stream.SetLength(10));
  EXPECT_EQ(Content(stream), "abc3456789");
}

TEST(MemBuffer, SeeksWithinItsBoundsAndShowsNothingOfTheHeap) {
  CMemBuffer stream(64);
  stream.Write("0123456789", 10);
  stream.Seek(0, 0);
  for (const auto& [offset, origin, position] :
       Table<std::int64_t, unsigned, unsigned>{{4, 0, 4},
                                               {-1, 0, 4},
                                               {3, 1, 7},
                                               {-8, 1, 7},
                                               {-3, 2, 7},
                                               {2, 3, 7},
                                               {1, 2, 7},
                                               {100, 0, 100},
                                               {INT64_MAX, 1, 100}}) {
    EXPECT_EQ(stream.Seek(offset, origin), position) << offset << " from " << origin;
  }
  char none = '?';
  EXPECT_EQ(stream.Read(&none, 1), 0u);
  stream.Write("b", 1);
  EXPECT_TRUE(stream.SetLength(300));
  EXPECT_EQ(Content(stream), "0123456789" + std::string(90, '\0') + "b" + std::string(199, '\0'));
}

TEST(MemBuffer, FreesWhatItOwnsAndHandsItsContentOver) {
  auto* given = static_cast<unsigned char*>(GlobalAlloc(GMEM_FIXED, 8));
  auto* kept = static_cast<unsigned char*>(GlobalAlloc(GMEM_FIXED, 8));
  CMemBuffer stream(8);
  EXPECT_EQ(stream.Attach(given, 8, 1, 0), 8u);
  stream.Attach(kept, 8, 0, 8);
  EXPECT_EQ(GlobalSize(given), 0u);
  stream.Close();
  EXPECT_EQ(GlobalSize(kept), 8u);
  GlobalFree(static_cast<void*>(kept));
  stream.Write("defg", 4);
  void* own = stream.Handle();
  unsigned char* copy = stream.DetachEx();
  EXPECT_EQ(std::string(copy, copy + GlobalSize(copy)), "defg");
  EXPECT_EQ(GlobalSize(own), 0u);
  GlobalFree(static_cast<void*>(copy));
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
