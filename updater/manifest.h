// The manifest of a package: which version it holds, and the files of it with their checksums.
// Whatever it says is a stranger's word until it has been checked here.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace update {

struct ManifestFile {
  std::string name;    ///< of a file directly in the package and in the work folder
  std::string sha256;  ///< 64 hexadecimal digits in lower case
  bool executable = false;
};

struct Manifest {
  std::string version;  ///< stored as the installed version
  std::string build;    ///< what the new service must tell as its build, "" for anything
  std::vector<ManifestFile> files;
};

inline constexpr const char* MANIFEST_NAME = "manifest.json";

/// Whether a package may install a file of that name: a plain one, and none of the settings, of the
/// service's folders or of what an update needs itself.
bool MayBeInstalled(std::string_view name);

/// Nothing, with the reason in `error`, unless every word of it is fit to be acted on: it is for
/// this product, and each file has a plain name of its own, which is none of the settings' or the
/// service's folders.
std::optional<Manifest> ParseManifest(const std::string& text, std::string& error);
/// The same of the manifest in a package folder.
std::optional<Manifest> LoadManifest(const std::string& package, std::string& error);

}  // namespace update
