#include "util/mem_buffer.h"

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
