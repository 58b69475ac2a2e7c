#include "frame/image_map.h"

#include <cstring>

#include "support/testing.h"

namespace {

constexpr std::size_t kImageBytes = sizeof(UploadDataStruct);

TEST(ImageMap, KeepsOneImageAGuid) {
  ImageMap map;
  const auto get = [&](const char* url) {
    std::string out(kImageBytes, '?');
    unsigned int length = 7;
    const int result = map.GetImage(url, out.data(), &length);
    EXPECT_EQ(length, result == 1 ? kImageBytes : 7u) << url;
    return result == 1 ? std::string(out.c_str()) : "none";
  };
  const std::string large(kImageBytes + 100, 'y');
  for (const auto& [url, data, result, a, b] :
       Table<const char*, const char*, int, std::string, std::string>{
           {"x/SetEncryptedImageMap?y&GUID=a", "first", 1, "first", "none"},
           {"/SetEncryptedImageMap?GUID=b", "2", 1, "first", "2"},
           {"/SetEncryptedImageMap?GUID=a", "1", 1, "1", "2"},
           {"/GetEncryptedImageMap?GUID=a", "3", 0, "1", "2"},
           {"/SetEncryptedImageMap?GUID=", "3", 0, "1", "2"},
           {"/SetEncryptedImageMap?guid=a", "3", 0, "1", "2"},
           {"/SetEncryptedImageMap?GUID=a", nullptr, 1, "none", "2"},
           {"/SetEncryptedImageMap?GUID=a", nullptr, 1, "none", "2"}}) {
    const auto length = static_cast<unsigned int>(data == nullptr ? 9 : std::strlen(data));
    EXPECT_EQ(map.SetImage(url, data, length), result) << url;
    EXPECT_EQ(get("/GetEncryptedImageMap?GUID=a"), a) << url;
    EXPECT_EQ(get("x/GetEncryptedImageMap?y&GUID=b"), b) << url;
  }
  EXPECT_EQ(get("/SetEncryptedImageMap?GUID=b") + get("/GetEncryptedImageMap?GUID=b&x"),
            "nonenone");
  unsigned int length = 0;
  EXPECT_EQ(map.GetImage("/GetEncryptedImageMap?GUID=b", nullptr, &length), 1);
  EXPECT_EQ(length, kImageBytes);
  map.SetImage("/SetEncryptedImageMap?GUID=b", large.data(), kImageBytes + 100);
  std::string out(large.size(), '?');
  map.GetImage("/GetEncryptedImageMap?GUID=b", out.data(), &length);
  EXPECT_EQ(out, large.substr(0, kImageBytes) + std::string(100, '?'));
}

TEST(ImageMap, ListsFilesWhateverTheirSlashes) {
  ImageMap map;
  map.AddFileToWhiteList("a\\b/c");
  map.AddFileToWhiteList("a/b\\c");
  for (const auto& [path, isListed] : Table<const char*, bool>{
           {"a/b/c", true}, {"a\\b\\c", true}, {"A/b/c", false}, {"a/b", false}, {"", false}}) {
    EXPECT_EQ(map.FileIsInWhiteList(path), isListed) << path;
  }
}

}  // namespace
