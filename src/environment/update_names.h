// What a service and its updater, a program of its own, both have to know by name.
#pragma once

/// The setting that is "1" while an update is in progress, and that of the installed version.
inline constexpr const char* UPDATE_MARK_KEY = "IfUpdate";
inline constexpr const char* INSTALLED_VERSION_KEY = "QVVersion";
/// Where a service package is unpacked, in the cache folder.
inline constexpr const char* PACKAGE_FOLDER = "MarviqueService";
