#include "command/command_text.h"

#include "os/system.h"
#include "support/testing.h"

namespace {

std::string LoadZip(const std::string& type, const std::string& version) {
  return R"({"id":"1","method":"LoadZipFromBytes","parameter":[)" + type + ",\"" + version + "\"]}";
}

TEST(CommandText, RoutesPathsAndTexts) {
  const std::string home = os::HomeFolder();
  for (const auto& [path, text, command, payload] :
       Table<const char*, const char*, std::string, PayloadSource>{
           {"/qtp/LoadZipFromBytes?type=2&qvver=17300531&", "ignored", LoadZip("2", "17300531"),
            PayloadSource::Body},
           {"/LoadZipFromBytes?type=12", "", LoadZip("1", ""), PayloadSource::Body},
           {"/LoadZipFromBytes", "", LoadZip("Z", ""), PayloadSource::Body},
           {"/LoadZipFromBytes?x=1&qvver=5&", "", LoadZip("ZipFromBytes?x=1", "5"),
            PayloadSource::Body},
           {"/a/CheckUpdateFile?qvver=17300531&",
            R"({"method":"CheckUpdateFile","parameter":["a",]})",
            R"({"method":"CheckUpdateFile","parameter":["a","17300531"]})", PayloadSource::None},
           {"/CheckUpdateFile", "x", R"(""]})", PayloadSource::None},
           {"/qtp/", R"({"id":"1"})", R"({"id":"1"})", PayloadSource::None},
           {"/qtp/any", "a\r\n\r\nb\r\n\r\nc", "a", PayloadSource::BehindSeparator},
           {"/qtp/any", "a\r\n\r\n", "a", PayloadSource::None},
           {"/x/qtp/abc", "a", "", PayloadSource::None},
           {"/qtp/", R"(["~/x",~/y,"x~/",)", "[\"" + home + "/x\"," + home + "/y,\"x~/\",",
            PayloadSource::None}}) {
    const CommandText built = BuildCommandText(path, text);
    EXPECT_EQ(built.text, command) << path;
    EXPECT_EQ(built.payload, payload) << path;
    EXPECT_EQ(built.payloadOffset, payload == PayloadSource::BehindSeparator ? 5u : 0u) << path;
  }
}

}  // namespace
