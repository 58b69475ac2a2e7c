// The program: its command line.
#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <exception>
#include <string_view>

#include "host/service.h"

namespace {

constexpr const char* kUsage =
    "marvique-service: answers the commands of web pages and programs on this machine.\n"
    "\n"
    "  --port N              listen here for HTTP and WebSocket (0: any free port)\n"
    "  --ssl-port N          listen here for HTTPS and secure WebSocket (0: any free port)\n"
    "                        Both are for the first module and are kept as its ports.\n"
    "  --module FILE         load this module; may be repeated (default: the one beside the\n"
    "                        program)\n"
    "  --idle-timeout SECONDS\n"
    "                        how long a silent client is waited for (default 60)\n"
    "  --version             print the version and end\n"
    "  --help                print this and end\n"
    "\n"
    "Settings are kept in QVConfiguration.ini beside the program. SIGINT and SIGTERM stop it.\n";

constexpr int kUsageError = 2;

struct CommandLine {
  host::Options options;
  bool help = false;
  bool version = false;
};

std::optional<int> Number(std::string_view text, int least, int most) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (value < least || value > most) return std::nullopt;
  return value;
}

/// Nothing, with the reason in `why`, for a command line that cannot be followed.
std::optional<CommandLine> Parse(int argc, const char* const* argv, std::string* why) {
  CommandLine line;
  host::Options& options = line.options;
  if (argc > 1) options.arguments.assign(argv + 1, argv + argc);
  for (int i = 1; i < argc; ++i) {
    std::string_view name = argv[i];
    std::optional<std::string_view> given;
    if (const auto equals = name.find('='); name.starts_with("--") && equals != name.npos) {
      given = name.substr(equals + 1);
      name = name.substr(0, equals);
    }
    const auto refuse = [&](const char* reason) {
      *why = std::string(name) + " " + reason;
      return std::nullopt;
    };
    const auto value = [&] { return given || i + 1 == argc ? given : argv[++i]; };
    const auto number = [&](int least, int most) {
      const auto text = value();
      return text ? Number(*text, least, most) : std::nullopt;
    };
    if (name == "--help" || name == "-h") {
      line.help = true;
    } else if (name == "--version") {
      line.version = true;
    } else if (name == "--port" || name == "--ssl-port") {
      const auto port = number(0, 65535);
      if (!port) return refuse("takes a number from 0 to 65535");
      (name == "--port" ? options.port : options.sslPort) = port;
    } else if (name == "--idle-timeout") {
      const auto seconds = number(1, 86400);
      if (!seconds) return refuse("takes seconds from 1 to 86400");
      options.patience = std::chrono::seconds(*seconds);
    } else if (name == "--module") {
      const auto file = value();
      if (!file || file->empty()) return refuse("needs the file of a module");
      options.modules.emplace_back(*file);
    } else {
      return refuse("is not an option; --help lists them");
    }
  }
  return line;
}

}  // namespace

int main(int argc, char** argv) {
  // Whatever the service or a module writes is its user's alone.
  ::umask(S_IRWXG | S_IRWXO);
  try {
    std::string why;
    const auto line = Parse(argc, argv, &why);
    if (!line) {
      std::fprintf(stderr, "marvique-service: %s\n", why.c_str());
      return kUsageError;
    }
    if (line->help || line->version) {
      std::fputs(line->help ? kUsage : "marvique-service " HOST_VERSION "\n", stdout);
      return 0;
    }
    return host::RunService(line->options, HOST_VERSION);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "marvique-service: %s\n", problem.what());
    return 1;
  }
}
