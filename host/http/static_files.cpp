#include "host/http/static_files.h"

#include <algorithm>

#include "host/http/http_message.h"

namespace host {

namespace {

/// Whether a list of If-None-Match names the tag (RFC 9110, 13.1.2: compared without "W/").
bool HasTag(std::string_view list, std::string_view etag) {
  return list == "*" || list.find(etag) != list.npos;
}

}  // namespace

const StaticFile* FindStaticFile(std::string_view path) {
  const auto files = StaticFiles();
  const auto found = std::find_if(files.begin(), files.end(),
                                  [path](const StaticFile& file) { return file.path == path; });
  return found == files.end() ? nullptr : &*found;
}

Response FileResponse(const RequestFacts& facts, const Origin& origin, const StaticFile& file) {
  const bool isKnown = HasTag(facts.knownTags, file.etag);
  // Kept, but asked about each time: an updated service brings other files.
  Response response(facts, origin, isKnown ? http::status::not_modified : http::status::ok,
                    "no-cache");
  response.Set("ETag", file.etag);
  if (!isKnown) response.SetBody(facts, file.mediaType, std::string(file.content));
  return response;
}

}  // namespace host
