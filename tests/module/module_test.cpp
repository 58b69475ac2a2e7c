// Drives the built module as a host does: loaded by its file, through its ten functions only.
#include <dlfcn.h>

#include "marvique/module.h"
#include "support/machine.h"
#include "support/testing.h"

namespace {

// The library first, as the functions are looked up in it.
class LoadedModule {
  struct Close {
    void operator()(void* library) const { ::dlclose(library); }
  };
  const std::unique_ptr<void, Close> library_{::dlopen(File().c_str(), RTLD_NOW | RTLD_LOCAL)};

  template <class Function>
  Function* Get(const char* name) {
    void* symbol = library_ == nullptr ? nullptr : ::dlsym(library_.get(), name);
    if (symbol == nullptr) throw std::runtime_error(::dlerror());
    return reinterpret_cast<Function*>(symbol);
  }

 public:
  static std::string File() { return ProgramsOwnFolder() + "../bin/" MODULE_FILE; }

  decltype(::DoAction)* DoAction = Get<decltype(::DoAction)>("DoAction");
  decltype(::DistributeCommand)* DistributeCommand =
      Get<decltype(::DistributeCommand)>("DistributeCommand");
  decltype(::GetWaitTimeout)* GetWaitTimeout = Get<decltype(::GetWaitTimeout)>("GetWaitTimeout");
  decltype(::GetAlias)* GetAlias = Get<decltype(::GetAlias)>("GetAlias");
  decltype(::GetVersionDesc)* GetVersionDesc = Get<decltype(::GetVersionDesc)>("GetVersionDesc");
  decltype(::GetPorts)* GetPorts = Get<decltype(::GetPorts)>("GetPorts");
  decltype(::GetImage)* GetImage = Get<decltype(::GetImage)>("GetImage");
  decltype(::SetImage)* SetImage = Get<decltype(::SetImage)>("SetImage");
  decltype(::Reserved)* Reserved = Get<decltype(::Reserved)>("Reserved");
};

signed char Collect(int, void* replies, const char* text, const void*, unsigned int, const char*) {
  static_cast<std::vector<std::string>*>(replies)->push_back(text);
  return 1;
}

// A module that was started; it is told to stop at the end.
struct StartedModule : LoadedModule {
  StartedModule() { DoAction(0, nullptr, nullptr, 1); }
  ~StartedModule() {
    DoAction(2, nullptr, nullptr, 0);
    DoAction(3, nullptr, nullptr, 0);
  }

  std::vector<std::string> Replies(int kind, const char* text1, const char* text2 = nullptr,
                                   SendBackFunc sendBack = &Collect) const {
    std::vector<std::string> replies;
    const int result = DistributeCommand(1, &replies, kind, text1, text2, "body", 4, 1, sendBack, 0,
                                         "", nullptr, nullptr, nullptr);
    EXPECT_EQ(static_cast<std::size_t>(result), replies.size());
    return replies;
  }
  std::string Answer(const std::string& command) const { return Replies(1, command.c_str()).at(0); }
};

std::string WorkFolder() { return fs::path(OwnProgram()).parent_path().string() + "/"; }

TEST(Module, TellsWhoItIsStartsAndStops) {
  const LoadedModule module;
  unsigned int alias = 0, plain = 0, secure = 0;
  EXPECT_EQ(module.GetAlias(&alias), 4);
  EXPECT_EQ(alias, 0x00707471u);
  char description[17] = "................";
  EXPECT_EQ(module.GetVersionDesc(description), 16);
  EXPECT_STREQ(description, "hvasm2_17300531");
  EXPECT_EQ(module.GetPorts(0, &plain) + module.GetPorts(0x80, &secure), 2);
  EXPECT_EQ(std::pair(plain, secure), std::pair(18625u, 18626u));
  fs::remove_all(WorkFolder() + "log");
  for (const unsigned int action : {1, 5}) EXPECT_FALSE(module.DoAction(action, "x", "y", 1));
  EXPECT_FALSE(fs::exists(WorkFolder() + "log"));
  EXPECT_TRUE(module.DoAction(0, nullptr, nullptr, 1));
  EXPECT_TRUE(fs::is_directory(WorkFolder() + "log"));
  EXPECT_TRUE(module.DoAction(4, "exe", "module", 2));
  for (const unsigned int action : {2, 3}) EXPECT_TRUE(module.DoAction(action, "", "", 0));
  EXPECT_EQ(module.GetWaitTimeout(), 1) << "a fresh instance counts as busy";
}

TEST(Module, RunsCommandsOfBothKindsAndRefusesOthers) {
  const StartedModule module;
  const std::string command = R"({"id":"9","cmdId":"c","method":"AddFirewall"})";
  const std::string reply =
      "{\n\t\"id\" : \"9\",\n\t\"method\" : \"AddFirewall\",\n\t\"result\" : \n\t[\n\t\tfalse\n"
      "\t],\n\t\"cmdId\" : \"c\"\n}\n";
  using Texts = std::vector<std::string>;
  EXPECT_EQ(module.Replies(1, command.c_str()), Texts{reply});
  EXPECT_EQ(module.Replies(0, "/qtp/", command.c_str()), Texts{reply});
  EXPECT_EQ(module.Replies(0, "/other", command.c_str()), Texts{"Invalid command"});
  EXPECT_EQ(module.Replies(2, "/qtp/", command.c_str()), Texts()) << "no such kind";
  EXPECT_EQ(module.Replies(0, "/qtp/"), Texts());
  EXPECT_EQ(module.Replies(0, "/qtp/", command.c_str(), nullptr), Texts());
  // Without bytes their number means nothing.
  for (const auto& [data, replied] : Table<const void*, int>{{nullptr, 1}, {"", 0}}) {
    Texts replies;
    EXPECT_EQ(module.DistributeCommand(1, &replies, 1, command.c_str(), nullptr, data, 0xFFFFFFFF,
                                       1, &Collect, 0, "", nullptr, nullptr, nullptr),
              replied);
  }
}

TEST(Module, KeepsImagesAndListedFilesUntilItIsUnloaded) {
  const StartedModule module;
  unsigned int len = 0;
  std::string out(2052, '?');
  const char* get = "/GetEncryptedImageMap?GUID=abcd&x";
  const char* set = "/SetEncryptedImageMap?GUID=abcd&x";
  EXPECT_EQ(module.SetImage(set, "image", 5), 1);
  EXPECT_EQ(module.GetImage(get, out.data(), &len), 1);
  EXPECT_STREQ(out.c_str(), "image");
  EXPECT_EQ(module.GetImage("/GetEncryptedImageMap?GUID=abcd", nullptr, &len), 0);
  for (const auto& [name, path, third, result] : Table<const char*, const char*, const void*, int>{
           {"fileInHVNWhiteList", "a\\b", nullptr, -1},
           {"addFileToWhiteList and more", "a\\b", nullptr, 0},
           {"fileInHVNWhiteList", "a/b", nullptr, 0},
           {"addFileToWhiteList", nullptr, nullptr, -1},
           {"addFileToWhiteList", "a/b", "x", -1}}) {
    EXPECT_EQ(module.Reserved(name, path, third), result) << name;
  }
  module.DoAction(3, nullptr, nullptr, 0);
  EXPECT_EQ(module.GetImage(get, nullptr, &len), 0);
  EXPECT_EQ(module.Reserved("fileInHVNWhiteList", "a/b", nullptr), -1);
}

TEST(ModuleThreads, RunCommandsInParallel) {
  const StartedModule module;
  const auto run = [&module](int thread) {
    for (int i = 0; i < 25; ++i) {
      const std::string port = std::to_string(1000 * thread + i), more = "," + port;
      const std::string set = module.Answer(R"({"method":"SetServerInfo","parameter":["h")" + more +
                                            more + more + more + "]}");
      EXPECT_NE(set.find("\"" + port + "\""), std::string::npos);
      unsigned int len = 0;
      EXPECT_EQ(module.SetImage(("/SetEncryptedImageMap?GUID=" + port).c_str(), "x", 1), 1);
      EXPECT_EQ(module.GetImage(("/GetEncryptedImageMap?GUID=" + port).c_str(), nullptr, &len), 1);
      EXPECT_EQ(module.Reserved("addFileToWhiteList", port.c_str(), nullptr), 0);
      EXPECT_EQ(module.Reserved("fileInHVNWhiteList", port.c_str(), nullptr), 0);
    }
  };
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) threads.emplace_back(run, thread);
}

bool IsMapped() { return IsLoaded("/" MODULE_FILE); }

TEST(ModuleUnload, LeavesNoThreadDescriptorMappingOrName) {
  Spit(WorkFolder() + "QVConfiguration.ini", "[QV]\nLogLevel=14\n");
  const auto use = [] {
    const StartedModule module;
    EXPECT_TRUE(IsMapped());
    // A thread of the host's that lives on must not keep the module in memory.
    std::jthread other([&module] { module.Answer(R"({"method":"GetServerInfo"})"); });
    module.Answer(R"({"method":"Reboot"})");
    module.SetImage("/SetEncryptedImageMap?GUID=a", "x", 1);
  };
  use();
  const std::size_t descriptors = OpenDescriptors();
  const std::size_t threads = LiveThreads();
  const std::size_t names = SemaphoreNames();
  for (int i = 0; i < 200; ++i) use();
  EXPECT_FALSE(IsMapped()) << "something keeps the module in memory";
  EXPECT_EQ(OpenDescriptors(), descriptors);
  for (int i = 0; i < 5000 && LiveThreads() != threads; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // a joined one may still be listed
  }
  EXPECT_EQ(LiveThreads(), threads);
  EXPECT_LT(SemaphoreNames(), names + 100) << "a name stays a run; others' come and go";
}

}  // namespace
