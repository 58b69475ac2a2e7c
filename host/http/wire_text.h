// Small rules for texts from and to the wire. All input is hostile, nothing throws but bad_alloc.
#pragma once

#include <string>
#include <string_view>

namespace host {

/// The kind of client that a User-Agent tells, 0 when there is none: 1 Chrome and its kin, 2
/// Firefox, 3 Safari, 4 Edge, 5 any other.
int BrowserTypeOf(std::string_view userAgent);

/// The text itself when it is valid UTF-8; otherwise with U+FFFD for each byte that is not.
std::string ToValidUtf8(std::string text);

/// Whether the text is a comma-separated list of plain header names, safe to be sent back.
bool IsTokenList(std::string_view text);

/// The media type of a reply: JSON when it begins as an object or an array.
const char* MediaTypeOf(std::string_view reply);

}  // namespace host
