#include "updater/records.h"

#include "support/testing.h"

namespace {

std::string File(const std::string& name, const std::string& sum = Times(64, "a")) {
  return R"({"name":")" + name + R"(","sha256":")" + sum + "\"}";
}

std::string Whole(const std::string& files, const std::string& version = "1",
                  const std::string& more = "") {
  return R"({"product":"Marvique Service","version":")" + version + "\"" + more + ",\"files\":[" +
         files + "]}";
}

TEST(Manifest, RefusesWhatIsNotFitToBeActedOn) {
  std::string many = File("f");
  for (int i = 0; i < 1000; ++i) many += "," + File("f" + std::to_string(i));
  Table<std::string, std::string> cases = {
      {Whole(File("a") + "," + File("b-1.2.so")), ""},
      {"[]", "no JSON object"},
      {Times(100'000, "["), "no JSON object"},
      {Whole(File("a")) + "x", "no JSON object"},
      {Whole(File("a"), "1", R"(,"version":"2")"), "no JSON object"},
      {R"({"product":"Other","version":"1"})", "not for the product"},
      {Whole(File("a"), "1", R"(,"build":7)"), "a build"},
      {Whole(""), "lists no files"},
      {R"({"product":"Marvique Service","version":"1","files":{"a":1}})", "lists no files"},
      {Whole(many), "too many"},
      {Whole("7"), "no file"},
      {Whole(File("qvconfiguration.INI")), "no package may replace"},
      {Whole(File("a") + "," + File("A")), "twice"},
      {Whole(File("a", Times(65, "a"))), "no SHA-256"},
      {Whole(File("a", Times(64, "A"))), "no SHA-256"},
  };
  using Texts = std::vector<std::string>;
  for (const auto& version : Texts{"", "1/2", "1\\\\2", "1..2", "1\\n2", Times(65, "1")}) {
    cases.emplace_back(Whole(File("a"), version), "no version");
  }
  for (const auto& name :
       Texts{"", "/etc/a", "d\\\\a", "C:a", "..", "a\\u0000b", Times(201, "a")}) {
    cases.emplace_back(Whole(File(name)), "no plain file name");
  }
  for (const auto& [text, told] : cases) {
    std::string error;
    EXPECT_EQ(updater::ParseManifest(text, error).has_value(), told.empty()) << error;
    EXPECT_NE(error.find(told), error.npos) << text.substr(0, 300) << "\n" << error;
  }
}

TEST(RunRecord, TellsWhetherTheServiceServes) {
  updater::RunRecord record;
  record.pid = 7;
  record.program = "/a/service";
  record.arguments = {"--port", "0"};
  record.environment = {"A=\xC3\xA4"};
  record.build = "1.2";
  record.port = 8;
  for (const bool serving : {false, true}) {
    record.serving = serving;
    const auto read = updater::ParseRunRecord(updater::RunRecordText(record));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->serving, serving);
    EXPECT_EQ(updater::RunRecordText(*read), updater::RunRecordText(record));
  }
  // Older services do not say it, and have ports once they serve.
  const std::string older = R"({"arguments":[],"environment":[],"port":0,"ssl_port":)";
  EXPECT_FALSE(updater::ParseRunRecord(older + "0}")->serving);
  EXPECT_TRUE(updater::ParseRunRecord(older + "9}")->serving);
  EXPECT_FALSE(updater::ParseRunRecord(older)) << "half written";
}

}  // namespace
