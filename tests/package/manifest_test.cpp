#include "package/manifest.h"

#include "support/testing.h"

namespace {

using package::Kind;

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
      {R"({"product":"Marvique Service","version":"1","files":[{"name":"a","install":false,)"
       R"("sha256":")" +
           Times(64, "a") + "\"}]}",
       "no files to install"},
      {Whole("7"), "no file"},
      {Whole(File("qvconfiguration.INI")), "no package may replace"},
      {Whole(File("update_KEYS")), "no package may replace"},
      {Whole(File("update.state")), "no package may replace"},
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
    const auto manifest = package::ParseManifest(text, Kind::Service, &error);
    EXPECT_EQ(manifest.has_value(), told.empty()) << error;
    EXPECT_NE(error.find(told), error.npos) << text.substr(0, 300) << "\n" << error;
  }
}

// What is signed for one purpose must not serve another.
TEST(Manifest, IsOfOneKindAndOnlyModuleFilesHaveFolders) {
  const std::string service = Whole(File("a"));
  std::string folders = Whole(File("sub/a.so")), modules = folders;
  modules.replace(modules.find("Service"), 7, "Service module files");
  for (const auto& [text, kind, isGood] :
       Table<std::string, Kind, bool>{{service, Kind::Service, true},
                                      {service, Kind::ModuleFiles, false},
                                      {folders, Kind::Service, false},
                                      {modules, Kind::ModuleFiles, true},
                                      {modules, Kind::Service, false}}) {
    std::string why;
    EXPECT_EQ(package::ParseManifest(text, kind, &why).has_value(), isGood) << text << why;
  }
  for (const char* name :
       {"../a", "sub/../a", "/a", "sub//a", "sub/", "sub/.a", "cert/a", "CACHE/a"}) {
    std::string text = modules, why;
    text.replace(text.find("sub/a.so"), 8, name);
    EXPECT_FALSE(package::ParseManifest(text, Kind::ModuleFiles, &why)) << name;
  }
}

TEST(Versions, AreComparedFieldByFieldAsNumbers) {
  for (const auto& [one, two, isLower] : Table<const char*, const char*, bool>{
           {"17,3,0,0531", "17, 3, 0, 0531", false},
           {"17,3,0,531", "17.4", true},
           {"9,0,0,1", "10", true},
           {"10", "9,9,9,9", false},
           {"18", "18,0,0,0", false},
           {"18", "18,0,0,1", true},
           {"18,0,0,1", "18", false},
           {"18,0,0,09", "18,0,0,10", true},
           {"99999999999999999998,1", "99999999999999999999", true},
           {"no number", "1", true},
           {"0", "", false},
           {"", "0", false}}) {
    EXPECT_EQ(package::IsLowerVersion(one, two), isLower) << one << " | " << two;
  }
}

}  // namespace
