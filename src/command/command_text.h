// The router's rule: how a request's path and text become the JSON text of a command. The door of
// the host asks the same functions which command a request holds, so that the reading that guards
// and the reading that runs can never differ.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The fixed path of a direct message.
inline constexpr std::string_view DIRECT_PATH = "/qtp/";

/// Where a request's payload comes from.
enum class PayloadSource { None, Body, BehindSeparator };

struct CommandText {
  std::string text;  ///< "" when the path belongs to no command
  PayloadSource payload = PayloadSource::None;
  std::size_t payloadOffset = 0;  ///< into the request text, for BehindSeparator
};

/// Builds the command's text, home folders already put in.
CommandText BuildCommandText(std::string_view path, std::string_view requestText);

/// The name of the function that such a request runs, "" for none.
std::string FindFunctionName(std::string_view path, std::string_view requestText);

/// The only function that a request could run, seen without parsing it: the request runs this one
/// or none. "" when a glance cannot tell, which says nothing about the request. The text is the
/// request's.
std::string_view GlanceAtFunctionName(std::string_view path, std::string_view requestText);

/// Value of the query key "qvver=" in a path: what stands between it and the next '&', "" when no
/// '&' follows.
std::string GetQVVersionFromPath(std::string_view path);

/// Whether the path takes a binary payload as its body.
bool TakesBinaryBody(std::string_view path);
