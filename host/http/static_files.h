// Files that are compiled into the program and answered by GET, such as the page client.
#pragma once

#include <span>
#include <string_view>

#include "host/door.h"

namespace host {

class Response;
struct RequestFacts;

struct StaticFile {
  std::string_view path;  ///< of the request
  std::string_view mediaType;
  std::string_view etag;  ///< with its quotes; changes with the content
  std::string_view content;
};

/// All of them; the build writes the body of this function. Any thread may call.
std::span<const StaticFile> StaticFiles();

/// The file at a path without a query, null for none. Any thread may call.
const StaticFile* FindStaticFile(std::string_view path);

/// The file, or 304 for a client that has it. `origin` is that of the page that may read it, if
/// any.
Response FileResponse(const RequestFacts& facts, const Origin& origin, const StaticFile& file);

}  // namespace host
