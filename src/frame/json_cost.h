// What a JSON text would cost to read and to write back.
#pragma once

#include <cstddef>
#include <string_view>

/// Every value of a reply stands on a line of its own, indented by its depth, so a small text of
/// brackets within brackets makes a huge reply. The cost is that indentation summed over all values
/// of the text: it also bounds how many values there are. Beyond this nothing is parsed.
inline constexpr std::size_t MOST_JSON_COST = 4'000'000;

/// Whether a text stays below that, seen in one pass that allocates nothing. Strings and comments
/// count as what they are; the text need not be valid.
bool IsAffordableJson(std::string_view text);
