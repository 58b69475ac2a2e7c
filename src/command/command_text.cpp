#include "command/command_text.h"

#include "command/json_command.h"
#include "environment/users.h"

namespace {

constexpr std::string_view kLoadZip = "/LoadZipFromBytes";
constexpr std::string_view kCheckUpdate = "/CheckUpdateFile";
constexpr std::string_view kVersionKey = "qvver=";
constexpr std::string_view kSeparator = "\r\n\r\n";

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool IsCheckUpdate(std::string_view path) {
  return !TakesBinaryBody(path) && Contains(path, kCheckUpdate);
}

// The value of "?type=". Without an '&' behind it, it is a single character; without the key, it is
// looked for at the place that a missing key leads to. Old clients rely on both.
std::string_view TypeValue(std::string_view path) {
  constexpr std::string_view kTypeKey = "?type=";
  const auto key = path.find(kTypeKey);
  const std::size_t start = key == std::string_view::npos ? 5 : key + kTypeKey.size();
  const auto end = path.find('&', start);
  if (start >= path.size()) return "";
  return path.substr(start, end == std::string_view::npos ? 1 : end - start);
}

std::string LoadZipText(std::string_view path) {
  std::string text = R"({"id":"1","method":"LoadZipFromBytes","parameter":[)";
  text.append(TypeValue(path)).append(",\"").append(GetQVVersionFromPath(path)).append("\"]}");
  return text;
}

// The client's list of parameters ends in a comma, a bracket and a brace; the version goes in.
std::string CheckUpdateText(std::string_view path, std::string_view requestText) {
  const std::size_t kept = requestText.size() < 2 ? 0 : requestText.size() - 2;
  std::string text(requestText.substr(0, kept));
  text.append("\"").append(GetQVVersionFromPath(path)).append("\"]}");
  return text;
}

}  // namespace

bool TakesBinaryBody(std::string_view path) { return Contains(path, kLoadZip); }

std::string GetQVVersionFromPath(std::string_view path) {
  const auto key = path.find(kVersionKey);
  if (key == std::string_view::npos) return "";
  const std::size_t start = key + kVersionKey.size();
  const auto end = path.find('&', start);
  if (end == std::string_view::npos) return "";
  return std::string(path.substr(start, end - start));
}

CommandText BuildCommandText(std::string_view path, std::string_view requestText) {
  CommandText command;
  if (TakesBinaryBody(path)) {
    command.text = LoadZipText(path);
    command.payload = PayloadSource::Body;
  } else if (IsCheckUpdate(path)) {
    command.text = CheckUpdateText(path, requestText);
  } else if (path.starts_with(DIRECT_PATH)) {
    const auto separator = requestText.find(kSeparator);
    command.text = requestText.substr(0, separator);
    if (separator != std::string_view::npos && separator + kSeparator.size() < requestText.size()) {
      command.payload = PayloadSource::BehindSeparator;
      command.payloadOffset = separator + kSeparator.size();
    }
  }
  if (Contains(command.text, "~/")) command.text = DealWithMacHomeDir(command.text);
  return command;
}

std::string_view GlanceAtFunctionName(std::string_view path, std::string_view requestText) {
  constexpr std::string_view kMethod = "\"method\"";
  if (!path.starts_with(DIRECT_PATH) || TakesBinaryBody(path) || IsCheckUpdate(path)) return "";
  // Without a backslash a name stands in the text as it reads, and a string ends at the next quote.
  // So there is one place at most that can name a function, wherever in the text it stands.
  for (const std::string_view other : {"\\", "\"event\"", "\"property\"", "~/"}) {
    if (Contains(requestText, other)) return "";
  }
  const auto key = requestText.find(kMethod);
  if (key == std::string_view::npos || key != requestText.rfind(kMethod)) return "";
  std::string_view rest = requestText.substr(key + kMethod.size());
  for (const char next : {':', '"'}) {
    const auto at = rest.find_first_not_of(" \t\r\n");
    if (at == std::string_view::npos || rest[at] != next) return "";
    rest.remove_prefix(at + 1);
  }
  const auto end = rest.find('"');
  return end == std::string_view::npos ? "" : rest.substr(0, end);
}

std::string FindFunctionName(std::string_view path, std::string_view requestText) {
  return JsonCommand(BuildCommandText(path, requestText).text).GetFunctionName();
}
