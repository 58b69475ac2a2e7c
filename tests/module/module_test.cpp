// Drives the built module as a host does: loaded by its file, through its ten functions only.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "frame/qtp_module.h"
#include "support/temp_folder.h"

extern "C" int header_compiles_as_c(void);

namespace fs = std::filesystem;

namespace {

class LoadedModule {
  void* const library_;  // before the functions, which are looked up in it

  template <class Function>
  Function Get(const char* name) {
    void* symbol = ::dlsym(library_, name);
    if (symbol == nullptr) throw std::runtime_error(name);
    return reinterpret_cast<Function>(symbol);
  }

 public:
  LoadedModule() : library_(::dlopen(File().c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) throw std::runtime_error(::dlerror());
  }
  ~LoadedModule() { ::dlclose(library_); }
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  static std::string File() { return ProgramsOwnFolder() + "../bin/libqtp.so"; }

  decltype(&::DoAction) DoAction = Get<decltype(&::DoAction)>("DoAction");
  decltype(&::DistributeCommand) DistributeCommand =
      Get<decltype(&::DistributeCommand)>("DistributeCommand");
  decltype(&::CloseWebSocket) CloseWebSocket = Get<decltype(&::CloseWebSocket)>("CloseWebSocket");
  decltype(&::GetWaitTimeout) GetWaitTimeout = Get<decltype(&::GetWaitTimeout)>("GetWaitTimeout");
  decltype(&::GetAlias) GetAlias = Get<decltype(&::GetAlias)>("GetAlias");
  decltype(&::GetVersionDesc) GetVersionDesc = Get<decltype(&::GetVersionDesc)>("GetVersionDesc");
  decltype(&::GetPorts) GetPorts = Get<decltype(&::GetPorts)>("GetPorts");
  decltype(&::GetImage) GetImage = Get<decltype(&::GetImage)>("GetImage");
  decltype(&::SetImage) SetImage = Get<decltype(&::SetImage)>("SetImage");
  decltype(&::Reserved) Reserved = Get<decltype(&::Reserved)>("Reserved");
};

signed char Collect(int, void* replies, const char* text, const void*, unsigned int, const char*) {
  static_cast<std::vector<std::string>*>(replies)->push_back(text);
  return 1;
}

std::string Answer(const LoadedModule& module, const std::string& command, int browserType = 1) {
  std::vector<std::string> replies;
  const int result =
      module.DistributeCommand(1, &replies, 1, command.c_str(), nullptr, nullptr, 0, browserType,
                               &Collect, 0, "", nullptr, nullptr, nullptr);
  EXPECT_EQ(result, 1) << command;
  EXPECT_EQ(replies.size(), 1u) << command;
  return replies.empty() ? "" : replies[0];
}

std::string WorkFolder() { return fs::canonical("/proc/self/exe").parent_path().string() + "/"; }

TEST(Module, TellsWhoItIs) {
  const LoadedModule module;
  EXPECT_TRUE(header_compiles_as_c());
  unsigned int alias = 0;
  EXPECT_EQ(module.GetAlias(&alias), 4);
  EXPECT_EQ(alias, 0x00707471u);
  EXPECT_EQ(module.GetAlias(nullptr), 4);
  EXPECT_EQ(module.GetVersionDesc(nullptr), 16);
  char description[17] = "................";
  EXPECT_EQ(module.GetVersionDesc(description), 16);
  EXPECT_STREQ(description, "hvasm2_17300531");
  unsigned int port = 0;
  EXPECT_EQ(module.GetPorts(0, &port), 1);
  EXPECT_EQ(port, 18625u);
  EXPECT_EQ(module.GetPorts(0x80, &port), 1);
  EXPECT_EQ(port, 18626u);
  EXPECT_EQ(module.GetPorts(1, nullptr), 1);
}

TEST(Module, StartsAndStopsByActions) {
  const LoadedModule module;
  for (const unsigned int nothing : {1u, 5u, 4000000000u}) {
    EXPECT_FALSE(module.DoAction(nothing, "x", "y", 1)) << nothing;
  }
  EXPECT_FALSE(fs::exists(WorkFolder() + "log"));
  EXPECT_TRUE(module.DoAction(0, nullptr, nullptr, 1));
  EXPECT_TRUE(fs::is_directory(WorkFolder() + "log"));
  EXPECT_TRUE(module.DoAction(4, "exe", "module", 2));
  EXPECT_TRUE(module.DoAction(2, nullptr, nullptr, 0));
  EXPECT_TRUE(module.DoAction(3, nullptr, nullptr, 0));
  EXPECT_EQ(module.GetWaitTimeout(), 1) << "a fresh instance counts as busy";
}

TEST(Module, RunsCommandsOfBothKindsAndRefusesOthers) {
  const LoadedModule module;
  module.DoAction(0, nullptr, nullptr, 1);
  const std::string command = R"({"id":"9","cmdId":"c","method":"AddFirewall"})";
  const std::string reply =
      "{\n\t\"id\" : \"9\",\n\t\"method\" : \"AddFirewall\",\n\t\"result\" : \n\t[\n\t\tfalse\n"
      "\t],\n\t\"cmdId\" : \"c\"\n}\n";
  EXPECT_EQ(Answer(module, command), reply);
  const struct {
    int kind;
    const char *text1, *text2, *domain;
    SendBackFunc sendBack;
    std::string reply;
  } kCalls[] = {{0, "/qtp/", command.c_str(), "", &Collect, reply},
                {0, "/other", command.c_str(), "", &Collect, "Invalid command"},
                {2, "/qtp/", command.c_str(), "", &Collect, ""},
                {-1, nullptr, nullptr, nullptr, nullptr, ""},
                {0, nullptr, command.c_str(), "", &Collect, ""},
                {0, "/qtp/", nullptr, "", &Collect, ""},
                {0, "/qtp/", command.c_str(), nullptr, &Collect, ""},
                {0, "/qtp/", command.c_str(), "", nullptr, ""},
                {0, "/other", command.c_str(), "", nullptr, ""},
                {1, nullptr, nullptr, "", &Collect, ""}};
  for (const auto& [kind, text1, text2, domain, sendBack, expected] : kCalls) {
    std::vector<std::string> replies;
    const int result = module.DistributeCommand(1, &replies, kind, text1, text2, "body", 4, 1,
                                                sendBack, 0, domain, nullptr, nullptr, nullptr);
    EXPECT_EQ(result, expected.empty() ? 0 : 1);
    EXPECT_EQ(replies.empty() ? "" : replies[0], expected);
  }
  module.DoAction(3, nullptr, nullptr, 0);
}

TEST(Module, LivesThroughHostileTexts) {
  const LoadedModule module;
  module.DoAction(0, nullptr, nullptr, 1);
  const std::string deep = std::string(1001, '[') + std::string(1001, ']');
  const std::string texts[] = {deep,
                               R"({"method":"GetPorts","parameter":[)" + deep + "]}",
                               "[1,2]",
                               "5",
                               "\"x\"",
                               "nul",
                               "{\"method\":\"\xFF\xFE\"}",
                               R"({"method":"GetPorts","parameter":"x"})",
                               R"({"method":"GetPorts","parameter":{"a":1}})",
                               R"({"id":{},"cmdId":[],"method":{"a":1}})",
                               std::string(16 * 1024 * 1024, 'x'),
                               R"({"method":")" + std::string(1024 * 1024, '%') + R"("})"};
  for (const std::string& text : texts) {
    EXPECT_NE(Answer(module, text).find("\"exception\" : -2"), std::string::npos)
        << text.substr(0, 80);
  }
  module.DoAction(3, nullptr, nullptr, 0);
}

TEST(Module, KeepsImagesAndListedFilesUntilItIsUnloaded) {
  const LoadedModule module;
  unsigned int len = 0;
  const char* get = "/GetEncryptedImageMap?GUID=a";
  EXPECT_EQ(module.SetImage("/SetEncryptedImageMap?GUID=a", "x", 1), 1);
  EXPECT_EQ(module.GetImage(get, nullptr, &len), 1);
  EXPECT_EQ(module.GetImage(get, nullptr, nullptr), 0);
  EXPECT_EQ(module.GetImage(nullptr, nullptr, &len), 0);
  EXPECT_EQ(module.SetImage(nullptr, "x", 1), 0);

  const struct {
    const char *name, *path;
    const void* third;
    int result;
  } kCalls[] = {{"fileInHVNWhiteList", "a\\b", nullptr, -1},
                {"addFileToWhiteList and more", "a\\b", nullptr, 0},
                {"fileInHVNWhiteListX", "a/b", nullptr, 0},
                {"fileInHVNWhiteLis", "a/b", nullptr, -1},
                {"", "a/b", nullptr, -1},
                {nullptr, "a/b", nullptr, -1},
                {"addFileToWhiteList", nullptr, nullptr, -1},
                {"addFileToWhiteList", "a/b", "x", -1}};
  for (const auto& [name, path, third, result] : kCalls) {
    EXPECT_EQ(module.Reserved(name, path, third), result) << (name == nullptr ? "null" : name);
  }
  module.CloseWebSocket(1);
  module.DoAction(3, nullptr, nullptr, 0);
  EXPECT_EQ(module.GetImage(get, nullptr, &len), 0);
  EXPECT_EQ(module.Reserved("fileInHVNWhiteList", "a/b", nullptr), -1);
  module.DoAction(3, nullptr, nullptr, 0);
}

TEST(Module, LogsACommandInItsWrittenForm) {
  Spit(WorkFolder() + "QVConfiguration.ini", "[QV]\nLogLevel=1\n");
  std::string text;
  {
    const LoadedModule module;
    module.DoAction(0, nullptr, nullptr, 1);
    Answer(module, R"({"id":"1","method":"SetServerInfo","parameter":[1,2]})");
    Spit(WorkFolder() + "QVConfiguration.ini", "[QV]\nLogLevel=14\n");
    Answer(module, R"({"id":"2","method":"SetServerInfo","parameter":[1,2,3,4]})");
    Answer(module, R"({"id":"3","method":"Nothing"})");
  }  // unloading writes what is pending
  text = Slurp(WorkFolder() + "log/qvs.log");
  EXPECT_EQ(text.find("\"id\":\"1\""), std::string::npos);
  std::size_t at = 0;
  for (const char* line :
       {"[Debug-0-0]: Url encode json command succeed. Processing...\n",
        "[Debug-0-0]: cmd = [{\"id\":\"2\"", "[Debug-0-0]: Receive Command: {\"id\":\"2\"",
        "[Debug-0-0]: 2. Before command actually start cost: ", "ms. id = [2].\n",
        "[Debug-0-0]: Twain function [SetServerInfo] begin: \n",
        "[Error-0-0]: Invalidate parameter count. Need 5 parameter, 4 parameter actually. "
        "GetLastError = ",
        "[Debug-0-0]: 3. Command process cost: ", "ms. cmd = [SetServerInfo]. id = [2].\n",
        "[Debug-0-0]: result json = [{", "[Debug-0-0]: 4. Command send back result cost: ",
        "ms. id = [2].\n\n", "[Error-0-0]: Invalid function name: Nothing. GetLastError = "}) {
    at = text.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << "\nis missing or out of order in\n" << text;
  }
}

TEST(ModuleThreads, RunCommandsInParallel) {
  const LoadedModule module;
  module.DoAction(0, nullptr, nullptr, 1);
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&module, t] {
        for (int i = 0; i < 25; ++i) {
          const std::string port = std::to_string(1000 * t + i);
          const std::string set =
              Answer(module, R"({"method":"SetServerInfo","parameter":["h",)" + port + "," + port +
                                 "," + port + "," + port + "]}");
          EXPECT_NE(set.find("\"" + port + "\""), std::string::npos);
          EXPECT_NE(Answer(module, R"({"method":"GetServerInfo"})").find("\"Host\":\"h\""),
                    std::string::npos);
          EXPECT_NE(Answer(module, R"({"method":"GetPorts"})").find("-2202"), std::string::npos);
        }
      });
    }
  }
  module.DoAction(2, nullptr, nullptr, 0);
  module.DoAction(3, nullptr, nullptr, 0);
}

std::size_t EntriesOf(const char* folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

std::size_t MappingsOf(const std::string& file) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  std::size_t count = 0;
  while (std::getline(maps, line)) count += line.find(file) != std::string::npos;
  return count;
}

std::vector<std::string> SemaphoreNames() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator("/dev/shm")) names.push_back(entry.path());
  return names;
}

bool Becomes(const std::function<bool()>& condition) {
  for (int i = 0; i < 5000 && !condition(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return condition();
}

TEST(ModuleUnload, LeavesNoThreadDescriptorMappingOrName) {
  Spit(WorkFolder() + "QVConfiguration.ini", "[QV]\nLogLevel=14\n");
  const auto use = [] {
    const LoadedModule module;
    EXPECT_GT(MappingsOf("libqtp.so"), 0u);
    module.DoAction(0, nullptr, nullptr, 1);
    // A thread of the host's that lives on must not keep the module in memory.
    std::jthread other([&module] { Answer(module, R"({"method":"GetServerInfo"})"); });
    Answer(module, R"({"method":"Reboot"})");
    module.SetImage("/SetEncryptedImageMap?GUID=a", "x", 1);
    other.join();
    module.DoAction(2, nullptr, nullptr, 0);
    module.DoAction(3, nullptr, nullptr, 0);
  };
  use();
  const std::size_t descriptors = EntriesOf("/proc/self/fd");
  const std::size_t threads = EntriesOf("/proc/self/task");
  const auto names = SemaphoreNames();
  for (int i = 0; i < 200; ++i) use();
  EXPECT_EQ(MappingsOf("libqtp.so"), 0u) << "the module is still mapped";
  EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
  EXPECT_TRUE(Becomes([&] { return EntriesOf("/proc/self/task") == threads; }));
  EXPECT_EQ(SemaphoreNames(), names);
}

}  // namespace
