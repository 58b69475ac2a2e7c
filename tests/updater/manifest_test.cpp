#include "updater/manifest.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Sum() { return std::string(63, 'a') + "0"; }

std::string File(const std::string& name, const std::string& more = "") {
  return R"({"name":")" + name + R"(","sha256":")" + Sum() + "\"" + more + "}";
}

std::string Whole(const std::string& files, const std::string& version = "17,3,1,0601",
                  const std::string& product = "Marvique Service", const std::string& more = "") {
  return R"({"product":")" + product + R"(","version":")" + version + "\"" + more + ",\"files\":[" +
         files + "]}";
}

TEST(Manifest, ReadsWhatAPackageSays) {
  std::string error;
  const auto manifest = update::ParseManifest(
      Whole(File("a", R"(,"executable":true)") + "," + File("b-1.2.so", R"(,"later":{})"),
            "17,3,1,0601", "Marvique Service", R"(,"build":"17.3.1")"),
      error);
  ASSERT_TRUE(manifest) << error;
  EXPECT_EQ(manifest->version, "17,3,1,0601");
  EXPECT_EQ(manifest->build, "17.3.1");
  ASSERT_EQ(manifest->files.size(), 2u);
  EXPECT_EQ(manifest->files[1].name, "b-1.2.so");
  EXPECT_EQ(manifest->files[1].sha256, Sum());
  EXPECT_TRUE(manifest->files[0].executable);
  EXPECT_FALSE(manifest->files[1].executable);
}

TEST(Manifest, RefusesWhatIsNotFitToBeActedOn) {
  const std::string deep(100'000, '[');
  std::string many;
  for (int i = 0; i < 1001; ++i) many += (i ? "," : "") + File("f" + std::to_string(i));
  const struct {
    std::string text, told;
  } cases[] = {
      {"", "no JSON object"},
      {"[]", "no JSON object"},
      {deep, "no JSON object"},
      {Whole(File("a")) + "x", "no JSON object"},
      {Whole(File("a"), "1", "Marvique Service", R"(,"version":"2")"), "no JSON object"},
      {Whole(File("a"), "1", "Other"), "not for the product"},
      {Whole(File("a"), ""), "no version"},
      {Whole(File("a"), "1/2"), "no version"},
      {Whole(File("a"), "1..2"), "no version"},
      {Whole(File("a"), "1\\n2"), "no version"},
      {Whole(File("a"), std::string(65, '1')), "no version"},
      {Whole(File("a"), "1", "Marvique Service", R"(,"build":7)"), "a build"},
      {Whole(""), "lists no files"},
      {R"({"product":"Marvique Service","version":"1","files":{"a":1}})", "lists no files"},
      {Whole(many), "too many"},
      {Whole("7"), "no file"},
      {Whole(File("")), "no plain file name"},
      {Whole(File("../a")), "no plain file name"},
      {Whole(File("/etc/a")), "no plain file name"},
      {Whole(File("d\\\\a")), "no plain file name"},
      {Whole(File("C:a")), "no plain file name"},
      {Whole(File("..")), "no plain file name"},
      {Whole(File(".hidden")), "no plain file name"},
      {Whole(File("a\\u0000b")), "no plain file name"},
      {Whole(File(std::string(201, 'a'))), "no plain file name"},
      {Whole(File("qvconfiguration.INI")), "no package may replace"},
      {Whole(File("cache")), "no package may replace"},
      {Whole(File("a") + "," + File("A")), "twice"},
      {Whole(R"({"name":"a"})"), "no SHA-256"},
      {Whole(R"({"name":"a","sha256":"xy"})"), "no SHA-256"},
      {Whole(R"({"name":"a","sha256":")" + std::string(64, 'A') + "\"}"), "no SHA-256"},
  };
  for (const auto& [text, told] : cases) {
    std::string error;
    EXPECT_FALSE(update::ParseManifest(text, error)) << text.substr(0, 300);
    EXPECT_NE(error.find(told), error.npos) << text.substr(0, 300) << "\n" << error;
  }
}

}  // namespace
