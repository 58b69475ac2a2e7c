// Folders against their manifests, programs by what they are, and the record of the last update.
#include "package/verification.h"

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <functional>

#include "package/update_record.h"
#include "support/testing.h"

namespace {

using namespace std::string_literals;

TEST(Folder, HoldsWhatItsManifestListsAndNothingElse) {
  const Table<const char*, std::function<void(const TempFolder&)>, const char*> cases = {
      {"the files", [](auto&) {}, ""},
      {"manifest and signature",
       [](auto& folder) {
         Spit(folder / "manifest.json", "");
         Spit(folder / "manifest.sig", "");
       },
       ""},
      {"an empty folder", [](auto& folder) { fs::create_directory(folder / "new"); }, ""},
      {"another file", [](auto& folder) { Spit(folder / "more", ""); }, "does not list more"},
      {"another file in a folder", [](auto& folder) { Spit(folder / "sub/manifest.sig", ""); },
       "does not list sub/manifest.sig"},
      {"a hidden file", [](auto& folder) { Spit(folder / ".x", ""); }, "does not list .x"},
      {"other bytes", [](auto& folder) { Spit(folder / "sub/b", "B"); }, "sub/b is not the file"},
      {"a file lacking", [](auto& folder) { fs::remove(folder / "a"); }, "lacks a"},
      {"a link to the right bytes",
       [](auto& folder) {
         fs::rename(folder / "a", folder / "manifest.sig");
         fs::create_symlink("manifest.sig", folder / "a");
       },
       "a is not the file"},
      {"a folder in a file's place",
       [](auto& folder) {
         fs::remove(folder / "a");
         fs::create_directory(folder / "a");
       },
       "lacks a"},
      {"no folder", [](auto& folder) { fs::remove_all(folder.path()); }, "cannot be looked at"},
  };
  for (const auto& [what, spoil, told] : cases) {
    SCOPED_TRACE(what);
    const TempFolder folder;
    fs::create_directory(folder / "sub");
    Spit(folder / "a", "a");
    Spit(folder / "sub/b", "b");
    package::Manifest manifest;
    for (const char* name : {"a", "sub/b"}) {
      manifest.files.push_back({name, package::Sha256OfFile(folder / name)});
    }
    EXPECT_EQ(manifest.files[0].sha256,
              "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb");
    spoil(folder);
    std::string why;
    EXPECT_EQ(package::HoldsExactly(folder.path(), manifest, &why), *told == '\0');
    EXPECT_NE(why.find(told), why.npos) << why;
  }
}

TEST(Programs, AreToldByContentModeOrName) {
  const TempFolder folder;
  for (const auto& [name, content, mode, isProgram] :
       Table<const char*, std::string, int, bool>{{"text", "text", 0644, false},
                                                  {"empty", "", 0644, false},
                                                  {"some.json", "{}", 0644, false},
                                                  {"a.solution", "x", 0644, false},
                                                  {"elf",
                                                   "\x7F"
                                                   "ELF\2\1",
                                                   0644, true},
                                                  {"shorter",
                                                   "\x7F"
                                                   "EL",
                                                   0644, false},
                                                  {"mach", "\xCF\xFA\xED\xFE\7", 0644, true},
                                                  {"fat", "\xCA\xFE\xBA\xBE"s + '\0', 0644, true},
                                                  {"pe", "MZ\x90", 0644, true},
                                                  {"script", "#!/bin/sh\n", 0644, true},
                                                  {"later", " #!/bin/sh\n", 0644, false},
                                                  {"by mode", "text", 0744, true},
                                                  {"libx.so", "text", 0644, true},
                                                  {"libx.SO.1.2", "text", 0644, true},
                                                  {"libx.dylib", "", 0644, true},
                                                  {"x.Exe", "", 0644, true}}) {
    Spit(folder / name, content);
    ::chmod((folder / name).c_str(), static_cast<mode_t>(mode));
    EXPECT_EQ(package::IsProgram(folder / name), isProgram) << name;
  }
  EXPECT_TRUE(package::IsProgram(folder / "missing"));
}

TEST(UpdateRecord, IsReadBackAndForgottenWhenOldOrDamaged) {
  using State = package::UpdateRecord::State;
  const TempFolder folder;
  const std::string file = folder / "update.state";
  EXPECT_EQ(package::ReadUpdateRecord(file).state, State::Idle);
  for (const State state : {State::Running, State::Done, State::Refused, State::TakenBack}) {
    package::WriteUpdateRecord(file, state, "1,2\n" + Times(99, "3"),
                               "why \x01\xC3" + Times(999, "y"));
    const package::UpdateRecord read = package::ReadUpdateRecord(file);
    EXPECT_EQ(read.state, state);
    EXPECT_EQ(read.version, "1,2?" + Times(60, "3"));
    EXPECT_EQ(read.reason, "why ??" + Times(494, "y"));
    EXPECT_LT(std::chrono::system_clock::now() - read.time, std::chrono::minutes(1));
  }
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));

  const auto at = [](std::int64_t days) {
    const std::int64_t seconds = static_cast<std::int64_t>(std::time(nullptr)) + days * 86400;
    return R"({"state":"done","time":)" + std::to_string(seconds) + "}";
  };
  for (const auto& [text, isKnown] : Table<std::string, bool>{
           {at(0), true},
           {at(-29), true},
           {at(-31), false},
           {at(31), false},
           {R"({"state":"done","time":-9223372036854775808})", false},
           {R"({"state":"done","time":9223372036854775807})", false},
           {R"({"state":"done"})", false},
           {at(0).substr(1), false},
           {at(0) + Times(5000, " "), false},
           {"", false},
           {std::string(at(0)).replace(at(0).find("done"), 4, "gone"), false}}) {
    Spit(file, text);
    EXPECT_EQ(package::ReadUpdateRecord(file).state != State::Idle, isKnown) << text.substr(0, 80);
  }
  fs::remove(file);
  fs::create_directory(file);
  EXPECT_EQ(package::ReadUpdateRecord(file).state, State::Idle);
}

}  // namespace
