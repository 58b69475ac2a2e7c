// Tables of cases. A table's columns are named where its rows are walked:
//   for (const auto& [text, valid] : Table<std::string, bool>{{"a", true}, {"", false}}) ...
#pragma once

#include <string>
#include <tuple>
#include <vector>

template <class... Columns>
using Table = std::vector<std::tuple<Columns...>>;
