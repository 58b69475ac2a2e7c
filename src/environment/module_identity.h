// Who this module is: the names, versions and aliases that it gives itself everywhere.
#pragma once

#include <array>

inline constexpr const char* EMPTY_STRING = "";

/// This module's alias, which is also its path segment and its key in port maps and replies, and
/// the alias of the scanning module beside it.
inline constexpr std::array<const char*, 2> ALIAS_ARY = {"qtp", "hvn"};

inline constexpr const char* MODULE_VERSION = "17, 3, 0, 0531";
/// The version told to clients that announce COMPATIBLE_CLIENT.
inline constexpr const char* COMPATIBLE_VERSION = "13,0,0,0404";
inline constexpr const char* COMPATIBLE_CLIENT = "hvasm_13000404";
inline constexpr const char* MODULE_DESCRIPTION = "Marvique Service Manager Module";
inline constexpr const char* MODULE_NOTICE = "Copyright the Marvique Service authors";
inline constexpr const char* SERVICE_NAME = "Marvique Service";

inline constexpr unsigned int DEFAULT_PORT = 18625;
inline constexpr unsigned int DEFAULT_SSL_PORT = 18626;
