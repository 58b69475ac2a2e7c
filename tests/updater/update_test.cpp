// An update that is cut off, or fails, at each of its steps in turn.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>

#include "platform/file_content.h"
#include "platform/profile.h"
#include "support/temp_folder.h"
#include "updater/recovery.h"
#include "updater/swap.h"
#include "updater/updater.h"

namespace {

using namespace update;

/// What the programs are, taken together.
enum class Programs { Old, New, Mixed };

/// A work folder with version 1 of "service" and "module", and a package of version 2, which has
/// "extra" beside them.
struct Installation {
  Installation() {
    for (const char* folder : {"cache", "cache/MarviqueService", "log"}) {
      std::filesystem::create_directory(folder_ / folder);
    }
    Spit(folder_ / "service", "old service");
    Spit(folder_ / "module", "old module");
    ::chmod((folder_ / "service").c_str(), 0750);
    Spit(places.settings, "[QV]\nMine=kept\nQVVersion=1\n");
    for (const char* name : {"service", "module", "extra"}) {
      Spit(places.package + name, std::string("new ") + name);
    }
    Spit(places.package + "not listed", "");
    Spit(places.package + MANIFEST_NAME, R"({"product":"Marvique Service","version":"2","files":[
      {"name":"service",
       "sha256":"a81c03acfff56ab1adb73111177949abe644a75dc298d5a57cc37414d1348220"},
      {"name":"module",
       "sha256":"f757c641aba490bdb18111fd1cbc55814ba710b551abf552ba0c626381a3d1df"},
      {"name":"extra","executable":true,
       "sha256":"56feecfcd680e56a1d45ff3b01fbac9795ba72b49d4ce5f43414241066f3e53c"}]})");
  }

  Programs Look() const {
    const std::string service = Slurp(folder_ / "service"), module = Slurp(folder_ / "module");
    const bool extra = std::filesystem::exists(folder_ / "extra");
    if (service == "old service" && module == "old module" && !extra) return Programs::Old;
    if (service == "new service" && module == "new module" &&
        Slurp(folder_ / "extra") == "new extra") {
      return Programs::New;
    }
    return Programs::Mixed;
  }

  std::string Setting(const char* key) const {
    char value[64];
    GetPrivateProfileStringA("QV", key, "", value, sizeof value, places.settings.c_str());
    return value;
  }

  mode_t Mode(const char* name) const {
    struct stat status {};
    return ::stat((folder_ / name).c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
  }

  /// Nothing of an update is left, and all that is told fits the programs that lie there.
  void ExpectSettled() const {
    const Programs programs = Look();
    EXPECT_NE(programs, Programs::Mixed);
    EXPECT_EQ(Setting("QVVersion"), programs == Programs::New ? "2" : "1");
    EXPECT_NE(Setting("IfUpdate"), "1");
    EXPECT_EQ(Setting("Mine"), "kept");
    EXPECT_FALSE(std::filesystem::exists(places.room));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "not listed"));
    EXPECT_EQ(Mode("service"), 0750u);
    EXPECT_EQ(Mode("extra"), programs == Programs::New ? 0755u : 0u);
  }

  TempFolder folder_;
  Places places = PlacesIn(folder_.path());
};

/// Counts steps and cuts the run off at one of them: it fails, or the process is killed within it,
/// which is before it where a step is whole or nothing.
struct Cut {
  enum class How { Never, Fails, Killed } how = How::Never;
  int at = 0;
};

struct Killed {};

class Steps {
 public:
  explicit Steps(Cut cut) : cut_(cut) {}

  /// Whether the run came as far as the cut.
  bool Reached() const { return count_ > cut_.at; }

  template <class Act, class Failure>
  Failure Take(
      Act act, Failure failure, const std::function<void()>& half = [] {}) {
    const Cut::How how = count_++ == cut_.at ? cut_.how : Cut::How::Never;
    if (how == Cut::How::Fails) return failure;
    if (how == Cut::How::Killed) {
      half();
      throw Killed();
    }
    return act();
  }

 private:
  Cut cut_;
  int count_ = 0;
};

class CutFiles : public FileOperations {
 public:
  CutFiles(Steps& steps, const Installation& home, bool links)
      : steps_(steps), home_(home), links_(links) {}

  int MakeFolder(const std::string& path) override {
    return Take([&] { return FileOperations::MakeFolder(path); });
  }
  int RemoveTree(const std::string& path) override {
    const auto half = [&] { std::filesystem::remove_all(path + "old"); };
    return steps_.Take([&] { return FileOperations::RemoveTree(path); }, EIO, half);
  }
  int Copy(const std::string& from, const std::string& to, mode_t mode, std::string* sum) override {
    const auto half = [&] { Spit(to, "half"); };
    return steps_.Take([&] { return FileOperations::Copy(from, to, mode, sum); }, ENOSPC, half);
  }
  int Link(const std::string& from, const std::string& to) override {
    return Take([&] { return links_ ? FileOperations::Link(from, to) : EPERM; });
  }
  int Rename(const std::string& from, const std::string& to) override {
    return Take([&] { return FileOperations::Rename(from, to); });
  }
  int Remove(const std::string& path) override {
    return Take([&] { return FileOperations::Remove(path); });
  }
  // No machine stops in these tests, so waiting for the disk would show nothing.
  int SyncFolder(const std::string&) override {
    return Take([] { return 0; });
  }
  int Write(const std::string& path, std::string_view content) override {
    return Take([&] { return WriteWholeFile(path.c_str(), content, 0600, Flush::Later); });
  }
  int StoreSettings(const std::string& file, std::span<const ProfileEntry> entries) override {
    return Take([&] { return FileOperations::StoreSettings(file, entries); });
  }

 private:
  template <class Act>
  int Take(Act act) {
    const int result = steps_.Take(act, EIO);
    for (const char* name : {"service", "module"}) {
      EXPECT_TRUE(std::filesystem::exists(home_.folder_ / name)) << "a program was missing";
    }
    return result;
  }

  Steps& steps_;
  const Installation& home_;
  const bool links_;
};

/// A machine with at most one service, which lives on when an updater is killed.
struct Machine {
  std::optional<Programs> running = Programs::Old;
  bool newOneWorks = true;
};

class CutService : public ServiceControl {
 public:
  CutService(Steps& steps, const Installation& home, Machine& machine)
      : steps_(steps), home_(home), machine_(machine) {}

  bool IsRunning() override { return machine_.running.has_value(); }
  std::string Stop() override {
    return steps_.Take(
        [&] {
          machine_.running.reset();
          return std::string();
        },
        std::string("It cannot be ended."));
  }
  std::string Start(const std::string&) override {
    return steps_.Take(
        [&]() -> std::string {
          EXPECT_FALSE(machine_.running) << "two services at once";
          machine_.running = home_.Look();
          EXPECT_NE(machine_.running, Programs::Mixed);
          return machine_.running == Programs::New && !machine_.newOneWorks ? "It fails." : "";
        },
        std::string("It does not start."));
  }

 private:
  Steps& steps_;
  const Installation& home_;
  Machine& machine_;
};

/// Whether the run said that the new version is installed; nothing when it was killed.
std::optional<bool> RunUpdater(Installation& home, Machine& machine, Steps& steps, bool links) {
  CutFiles files(steps, home, links);
  CutService service(steps, home, machine);
  const StepsLog log(home.places.log);
  try {
    return Updater(files, service, home.places, log).Run();
  } catch (const Killed&) {
    return std::nullopt;
  }
}

struct Setting {
  bool links = true;  ///< whether the file system gives a file two names
  bool newOneWorks = true;
};

class CutOff : public ::testing::TestWithParam<std::tuple<Cut::How, Setting>> {};

TEST_P(CutOff, AtEveryStepItEndsOldOrNew) {
  const auto [how, setting] = GetParam();
  const auto [links, newOneWorks] = setting;
  const Programs wanted = newOneWorks ? Programs::New : Programs::Old;
  int at = 0;
  // Each cut twice: then the updater comes again, or the service is started.
  for (bool reached = true; reached && !HasFailure(); ++at) {
    for (const bool updaterComesAgain : {true, false}) {
      SCOPED_TRACE("cut off at step " + std::to_string(at));
      Installation home;
      Machine machine{Programs::Old, newOneWorks};
      Steps steps({how, at});
      const auto result = RunUpdater(home, machine, steps, links);
      reached = steps.Reached();
      EXPECT_EQ(result.has_value(), how == Cut::How::Fails || !reached);
      if (result) {
        EXPECT_EQ(*result, home.Look() == Programs::New);
        EXPECT_EQ(machine.running, home.Look());
      }
      if (updaterComesAgain) {
        Steps all({Cut::How::Never, 0});
        EXPECT_EQ(RunUpdater(home, machine, all, links), newOneWorks);
        EXPECT_EQ(home.Look(), wanted);
        EXPECT_EQ(machine.running, wanted);
      } else {
        if (!machine.running) machine.running = home.Look();
        const Recovery recovery = RecoverAtStart(home.places);
        EXPECT_NE(recovery.outcome, Recovery::Outcome::Failed);
        // Where it says that it changed nothing, the service goes on as what it is.
        if (recovery.changed) machine.running = home.Look();
        EXPECT_EQ(machine.running, home.Look());
      }
      home.ExpectSettled();
    }
  }
  EXPECT_GT(at, 25) << "the steps were not counted";
}

INSTANTIATE_TEST_SUITE_P(All, CutOff,
                         ::testing::Combine(::testing::Values(Cut::How::Fails, Cut::How::Killed),
                                            ::testing::Values(Setting{}, Setting{true, false},
                                                              Setting{false, false})));

TEST(Package, IsRefusedWhenAFileIsNotWhatTheManifestSays) {
  const struct {
    const char* what;
    std::function<void(const Installation&)> spoil;
  } cases[] = {
      {"other bytes", [](auto& home) { Spit(home.places.package + "module", "other"); }},
      {"lacking", [](auto& home) { std::filesystem::remove(home.places.package + "extra"); }},
      {"no manifest",
       [](auto& home) { std::filesystem::remove(home.places.package + MANIFEST_NAME); }},
      {"a link to the right bytes",
       [](auto& home) {
         std::filesystem::rename(home.places.package + "module", home.folder_ / "elsewhere");
         std::filesystem::create_symlink(home.folder_ / "elsewhere",
                                         home.places.package + "module");
       }},
      {"a folder in the place of a program",
       [](auto& home) { std::filesystem::create_directory(home.folder_ / "extra"); }},
  };
  for (const auto& [what, spoil] : cases) {
    SCOPED_TRACE(what);
    Installation home;
    spoil(home);
    FileOperations files;
    Machine machine;
    Steps all({Cut::How::Never, 0});
    EXPECT_EQ(RunUpdater(home, machine, all, true), false);
    EXPECT_EQ(machine.running, Programs::Old);
    EXPECT_EQ(Slurp(home.folder_ / "module"), "old module");
    EXPECT_EQ(home.Setting("QVVersion"), "1");
    EXPECT_EQ(home.Setting("IfUpdate"), "0");
    EXPECT_FALSE(std::filesystem::exists(home.places.room));
  }
}

}  // namespace
