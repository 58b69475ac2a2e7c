#include "host/options.h"

#include <charconv>
#include <string_view>

namespace host {

const char* const kUsage =
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

namespace {

std::optional<int> Number(std::string_view text, int least, int most) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (value < least || value > most) return std::nullopt;
  return value;
}

}  // namespace

Options ParseOptions(int argc, const char* const* argv) {
  Options options;
  if (argc > 1) options.arguments.assign(argv + 1, argv + argc);
  for (int i = 1; i < argc && options.error.empty(); ++i) {
    std::string_view name = argv[i];
    std::optional<std::string_view> value;
    if (const auto equals = name.find('='); name.starts_with("--") && equals != name.npos) {
      value = name.substr(equals + 1);
      name = name.substr(0, equals);
    }
    const auto refuse = [&](const char* why) {
      options.error = std::string(name) + " " + why;
      return std::nullopt;
    };
    const auto takeNumber = [&](int least, int most, const char* why) -> std::optional<int> {
      if (!value && i + 1 < argc) value = argv[++i];
      if (!value) return refuse("needs a value");
      const auto number = Number(*value, least, most);
      return number ? number : refuse(why);
    };
    if (name == "--help" || name == "-h") {
      options.help = true;
    } else if (name == "--version") {
      options.version = true;
    } else if (name == "--port") {
      options.port = takeNumber(0, 65535, "takes a number from 0 to 65535");
    } else if (name == "--ssl-port") {
      options.sslPort = takeNumber(0, 65535, "takes a number from 0 to 65535");
    } else if (name == "--idle-timeout") {
      if (const auto seconds = takeNumber(1, 86400, "takes seconds from 1 to 86400")) {
        options.patience = std::chrono::seconds(*seconds);
      }
    } else if (name == "--module") {
      if (!value && i + 1 < argc) value = argv[++i];
      if (value && !value->empty()) {
        options.modules.emplace_back(*value);
      } else {
        refuse("needs the file of a module");
      }
    } else {
      refuse("is not an option; --help lists them");
    }
  }
  return options;
}

}  // namespace host
