// An update that is cut off, or fails, at each of its steps in turn.
#include <functional>
#include <optional>

#include "os/file.h"
#include "package/manifest.h"
#include "package/update_record.h"
#include "platform/profile.h"
#include "support/signer.h"
#include "support/testing.h"
#include "updater/exchange.h"
#include "updater/recovery.h"
#include "updater/update.h"

namespace {

using namespace updater;
using State = package::UpdateRecord::State;

/// What the programs are, taken together.
enum class Programs { Old, New, Mixed };

/// A work folder with version 1 of "service" and "module", and a package of version 2, which has
/// "extra" beside them. At most one service runs there, which lives on when an updater is killed.
struct Installation {
  Installation() {
    for (const char* folder : {"cache", "cache/MarviqueService", "log"}) {
      fs::create_directory(folder_ / folder);
    }
    Spit(folder_ / "service", "old service");
    Spit(folder_ / "module", "old module");
    fs::permissions(folder_ / "service", fs::perms(0750));
    Spit(paths.settings, "[QV]\nMine=kept\nQVVersion=1\n");
    for (const char* name : {"service", "module", "extra"}) {
      Spit(paths.package + name, std::string("new ") + name);
    }
    for (const char* name : {"not listed", "runs only"}) Spit(paths.package + name, "");
    Spit(paths.package + package::MANIFEST_NAME,
         R"({"product":"Marvique Service","version":"2","files":[
      {"name":"service",
       "sha256":"a81c03acfff56ab1adb73111177949abe644a75dc298d5a57cc37414d1348220"},
      {"name":"module",
       "sha256":"f757c641aba490bdb18111fd1cbc55814ba710b551abf552ba0c626381a3d1df"},
      {"name":"extra","executable":true,
       "sha256":"56feecfcd680e56a1d45ff3b01fbac9795ba72b49d4ce5f43414241066f3e53c"},
      {"name":"runs only","install":false,
       "sha256":"56feecfcd680e56a1d45ff3b01fbac9795ba72b49d4ce5f43414241066f3e53c"}]})");
  }

  Programs Look() const {
    std::string all;
    for (const char* name : {"service", "module", "extra"}) {
      all += (fs::exists(folder_ / name) ? Slurp(folder_ / name) : "none") + "|";
    }
    if (all == "old service|old module|none|") return Programs::Old;
    return all == "new service|new module|new extra|" ? Programs::New : Programs::Mixed;
  }

  std::string Setting(const char* key) const {
    char value[64];
    GetPrivateProfileStringA("QV", key, "", value, sizeof value, paths.settings.c_str());
    return value;
  }

  /// What /health would tell of the update.
  State Told() const { return package::ReadUpdateRecord(paths.record).state; }

  fs::perms Mode(const char* name) const { return fs::status(folder_ / name).permissions(); }

  /// Nothing of an update is left, and all that is told fits the programs that lie there.
  void ExpectSettled() const {
    const Programs programs = Look();
    EXPECT_NE(programs, Programs::Mixed);
    EXPECT_EQ(running, programs);
    EXPECT_EQ(Setting("QVVersion"), programs == Programs::New ? "2" : "1");
    EXPECT_NE(Setting("IfUpdate"), "1");
    EXPECT_EQ(Setting("Mine"), "kept");
    EXPECT_FALSE(fs::exists(paths.update));
    for (const char* name : {"not listed", "runs only"}) EXPECT_FALSE(fs::exists(folder_ / name));
    EXPECT_EQ(Told() == State::Done, programs == Programs::New);
    EXPECT_NE(Told(), State::Running);
    EXPECT_EQ(Mode("service"), fs::perms(0750));
    if (programs == Programs::New) {
      EXPECT_EQ(Mode("extra"), fs::perms(0755));
    }
  }

  TempFolder folder_;
  UpdatePaths paths = UpdatePathsIn(folder_.path());
  std::optional<Programs> running = Programs::Old;
  bool wasStopped = false;
  bool hasLinks = true;  ///< whether the file system gives a file two names
  bool newOneWorks = true;
};

struct Killed {};

/// Counts the steps of a run and cuts it off at one of them: it fails, or the process is killed
/// within it, which is before it where a step is whole or nothing.
class Steps {
 public:
  enum class Cut { Never, Fails, Killed };
  Steps(const Installation& home, Cut cut, int at) : home_(home), cut_(cut), at_(at) {}

  /// Whether the run came as far as the cut.
  bool Reached() const { return count_ > at_; }

  /// Whether the step that begins has to fail. `half` is what a killed one leaves.
  bool Fails(const std::function<void()>& half = [] {}) {
    for (const char* name : {"service", "module"}) {
      EXPECT_TRUE(fs::exists(home_.folder_ / name)) << "a program was missing";
    }
    if (count_++ != at_ || cut_ == Cut::Never) return false;
    if (cut_ == Cut::Fails) return true;
    half();
    throw Killed();
  }

 private:
  const Installation& home_;
  const Cut cut_;
  const int at_;
  int count_ = 0;
};

class CutFiles : public FileOperations {
  using Real = FileOperations;

 public:
  CutFiles(Steps& steps, bool hasLinks) : steps_(steps), hasLinks_(hasLinks) {}

  int MakeFolder(const std::string& path) override {
    return steps_.Fails() ? EIO : Real::MakeFolder(path);
  }
  int RemoveTree(const std::string& path) override {
    return steps_.Fails([&] { fs::remove_all(path + "old"); }) ? EIO : Real::RemoveTree(path);
  }
  int Copy(const std::string& from, const std::string& to, mode_t mode, std::string* sum) override {
    return steps_.Fails([&] { Spit(to, "half"); }) ? ENOSPC : Real::Copy(from, to, mode, sum);
  }
  int Link(const std::string& from, const std::string& to) override {
    return steps_.Fails() ? EIO : hasLinks_ ? Real::Link(from, to) : EPERM;
  }
  int Rename(const std::string& from, const std::string& to) override {
    return steps_.Fails() ? EIO : Real::Rename(from, to);
  }
  int Remove(const std::string& path) override { return steps_.Fails() ? EIO : Real::Remove(path); }
  // No machine stops in these tests, so waiting for the disk would show nothing.
  int SyncFolder(const std::string&) override { return steps_.Fails() ? EIO : 0; }
  int Write(const std::string& path, std::string_view content) override {
    return steps_.Fails() ? EIO : WriteWholeFile(path.c_str(), content, 0600, Flush::Later);
  }
  int StoreSettings(const std::string& file, std::span<const ProfileEntry> entries) override {
    return steps_.Fails() ? EIO : Real::StoreSettings(file, entries);
  }

 private:
  Steps& steps_;
  const bool hasLinks_;
};

class CutService : public ServiceControl {
 public:
  CutService(Steps& steps, Installation& home) : steps_(steps), home_(home) {}

  bool IsRunning() override { return home_.running.has_value(); }
  std::string Stop() override {
    if (steps_.Fails()) return "It cannot be ended.";
    home_.running.reset();
    home_.wasStopped = true;
    return "";
  }
  std::string Start(const std::string&) override {
    if (steps_.Fails()) return "It does not start.";
    EXPECT_FALSE(home_.running) << "two services at once";
    home_.running = home_.Look();
    EXPECT_NE(home_.running, Programs::Mixed);
    return home_.running == Programs::New && !home_.newOneWorks ? "It fails." : "";
  }

 private:
  Steps& steps_;
  Installation& home_;
};

/// Whether the run said that the new version is installed; nothing when it was killed.
std::optional<bool> RunUpdater(Installation& home, Steps& steps, bool mayDowngrade = false) {
  CutFiles files(steps, home.hasLinks);
  CutService service(steps, home);
  const UpdateLog log(home.paths.log);
  try {
    return Update(files, service, home.paths, log).Run(mayDowngrade);
  } catch (const Killed&) {
    return std::nullopt;
  }
}

std::optional<bool> RunWhole(Installation& home, bool mayDowngrade = false) {
  Steps steps(home, Steps::Cut::Never, 0);
  return RunUpdater(home, steps, mayDowngrade);
}

/// How it is cut off, whether a file may have two names, whether the new service works.
class CutOff : public ::testing::TestWithParam<std::tuple<Steps::Cut, bool, bool>> {};

TEST_P(CutOff, AtEveryStepItEndsOldOrNew) {
  const auto [cut, hasLinks, newOneWorks] = GetParam();
  int at = 0;
  // Each cut twice: then the updater comes again, or the service is started.
  for (bool reached = true; reached && !HasFailure(); ++at) {
    for (const bool updaterComesAgain : {true, false}) {
      SCOPED_TRACE("cut off at step " + std::to_string(at));
      Installation home;
      home.hasLinks = hasLinks;
      home.newOneWorks = newOneWorks;
      Steps steps(home, cut, at);
      const auto result = RunUpdater(home, steps);
      reached = steps.Reached();
      EXPECT_EQ(result.has_value(), cut == Steps::Cut::Fails || !reached);
      if (result) {
        EXPECT_EQ(*result, home.Look() == Programs::New);
        EXPECT_EQ(home.running, home.Look());
      }
      if (updaterComesAgain) {
        EXPECT_EQ(RunWhole(home), newOneWorks);
        EXPECT_EQ(home.Look(), newOneWorks ? Programs::New : Programs::Old);
      } else {
        if (!home.running) home.running = home.Look();
        const Recovery recovery = RecoverForService(home.paths, true);
        EXPECT_NE(recovery.outcome, Recovery::Outcome::Failed);
        // Where it says that it changed nothing, the service goes on as what it is.
        if (recovery.changed) home.running = home.Look();
      }
      home.ExpectSettled();
    }
  }
  EXPECT_GT(at, 25) << "the steps were not counted";
}

INSTANTIATE_TEST_SUITE_P(All, CutOff,
                         ::testing::Combine(::testing::Values(Steps::Cut::Fails,
                                                              Steps::Cut::Killed),
                                            ::testing::Bool(), ::testing::Bool()));

TEST(Recovery, TellsWhenTheLockCannotBeHad) {
  Installation home;
  Spit(home.paths.settings, "[QV]\nIfUpdate=1\n");
  fs::create_symlink("elsewhere", home.paths.lock);
  EXPECT_EQ(FindLeft(home.paths), Left::LockNotTaken);
  EXPECT_EQ(RecoverForService(home.paths, true).outcome, Recovery::Outcome::Failed);
  EXPECT_NE(Slurp(home.paths.log).find("no lock"), std::string::npos);
}

TEST(Package, IsRefusedWhenAFileIsNotWhatTheManifestSays) {
  const Table<const char*, std::function<void(const Installation&)>> cases = {
      {"other bytes", [](auto& home) { Spit(home.paths.package + "module", "x"); }},
      {"lacking", [](auto& home) { fs::remove(home.paths.package + "extra"); }},
      {"no manifest", [](auto& home) { fs::remove(home.paths.package + package::MANIFEST_NAME); }},
      {"a link to the right bytes",
       [](auto& home) {
         fs::rename(home.paths.package + "module", home.folder_ / "elsewhere");
         fs::create_symlink(home.folder_ / "elsewhere", home.paths.package + "module");
       }},
      {"a folder in the place of a program",
       [](auto& home) { fs::create_directory(home.folder_ / "extra"); }},
  };
  for (const auto& [what, spoil] : cases) {
    SCOPED_TRACE(what);
    Installation home;
    spoil(home);
    EXPECT_EQ(RunWhole(home), false);
    EXPECT_FALSE(home.wasStopped);
    EXPECT_EQ(home.Told(), State::Refused);
    EXPECT_EQ(Slurp(home.folder_ / "module"), "old module");
    EXPECT_EQ(home.Setting("QVVersion") + home.Setting("IfUpdate"), "10");
    EXPECT_FALSE(fs::exists(home.paths.update));
  }
}

TEST(Package, MustBeSignedWhereThereIsAKeyAndIsNeverADowngradeUnasked) {
  const Signer mine(1), other(2);
  const auto key = [](Installation& home, const char* name, const std::string& pem) {
    fs::create_directory(home.folder_ / "update_keys");
    Spit(home.folder_ / "update_keys/" + name, pem);
  };
  const auto sign = [&](Installation& home, const Signer& signer) {
    key(home, "a.pem", mine.PublicPem());
    Spit(home.paths.package + "manifest.sig",
         signer.Sign(Slurp(home.paths.package + "manifest.json")));
  };
  const auto replace = [](Installation& home, const char* old, const char* text) {
    std::string manifest = Slurp(home.paths.package + "manifest.json");
    manifest.replace(manifest.find(old), std::string(old).size(), text);
    Spit(home.paths.package + "manifest.json", manifest);
  };
  const Table<const char*, std::function<void(Installation&)>, bool, const char*> cases = {
      {"no key", [](auto&) {}, false, ""},
      {"signed", [&](auto& home) { sign(home, mine); }, false, ""},
      {"not signed", [&](auto& home) { key(home, "a.pem", mine.PublicPem()); }, false,
       "not signed."},
      {"signed by another", [&](auto& home) { sign(home, other); }, false, "not signed with a key"},
      {"a key that is none", [&](auto& home) { key(home, "a.pem", "x"); }, false, "not signed."},
      {"two keys, signed with one",
       [&](auto& home) {
         sign(home, other);
         key(home, "b.pem", other.PublicPem());
       },
       false, ""},
      {"a file changed",
       [&](auto& home) {
         sign(home, mine);
         Spit(home.paths.package + "extra", "new extrA");
       },
       false, "extra is not the file"},
      {"a file and its sum changed",
       [&](auto& home) {
         sign(home, mine);
         Spit(home.paths.package + "extra", "a");
         replace(home, "56feecfcd680e56a1d45ff3b01fbac9795ba72b49d4ce5f43414241066f3e53c",
                 "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb");
       },
       false, "not signed with a key"},
      {"a lower version",
       [](auto& home) { Spit(home.paths.settings, "[QV]\nMine=kept\nQVVersion=2,0,0,1\n"); }, false,
       "version 2, which is below the installed 2,0,0,1"},
      {"a lower version, signed",
       [&](auto& home) {
         sign(home, mine);
         Spit(home.paths.settings, "[QV]\nQVVersion=10\n");
       },
       false, "below the installed 10"},
      {"a lower version by hand",
       [](auto& home) { Spit(home.paths.settings, "[QV]\nQVVersion=10\n"); }, true, ""},
      {"not signed by hand", [&](auto& home) { key(home, "a.pem", mine.PublicPem()); }, true,
       "not signed."},
  };
  for (const auto& [what, prepare, byHand, told] : cases) {
    SCOPED_TRACE(what);
    Installation home;
    prepare(home);
    const bool isGood = *told == '\0';
    EXPECT_EQ(RunWhole(home, byHand), isGood);
    EXPECT_EQ(home.Look(), isGood ? Programs::New : Programs::Old);
    EXPECT_EQ(home.wasStopped, isGood);
    EXPECT_EQ(home.Told(), isGood ? State::Done : State::Refused);
    const std::string reason = package::ReadUpdateRecord(home.paths.record).reason;
    EXPECT_NE(reason.find(told), reason.npos) << reason;
    EXPECT_EQ(home.Setting("IfUpdate"), "0");
  }
}

}  // namespace
