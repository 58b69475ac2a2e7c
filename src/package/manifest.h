// The manifest of a package: which files it holds, with their checksums, and which version it is.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace package {

/// What a package is for. A manifest is good for one kind only: the files of a service's package,
/// signed for the updater, must not be taken for module files, which no updater looks at.
enum class Kind {
  Service,      ///< a service, which an updater installs
  ModuleFiles,  ///< files for the module's folder, which the service itself copies
};

struct ManifestFile {
  std::string name;    ///< in the package and in the folder; only module files have folders in it
  std::string sha256;  ///< 64 hexadecimal digits in lower case
  bool executable = false;
  bool install = true;  ///< false for the updater, which only runs
};

/// What a package holds. Its text is untrusted until ParseManifest has checked it.
struct Manifest {
  std::string version;  ///< stored as the installed version
  std::string build;    ///< the build that the new service must tell, "" for any
  std::vector<ManifestFile> files;
};

inline constexpr const char* MANIFEST_NAME = "manifest.json";
/// The signature over the manifest's bytes: 64 bytes as Ed25519 gives them.
inline constexpr const char* SIGNATURE_NAME = "manifest.sig";

/// Whether a package may install a file of that name beside the program: a plain name, and none of
/// the settings, of the service's folders or of what an update needs itself.
bool MayBeInstalled(std::string_view name);

/// Returns the manifest only when all of it can be acted on: it is of this kind and for this
/// product, its version can be stored, and each file has a name of its own that may be installed.
/// Else nothing, and `why` is a sentence with the reason.
std::optional<Manifest> ParseManifest(const std::string& text, Kind kind, std::string* why);

/// Whether a version is below another, field by field: the fields are the numbers in a text, a
/// missing one is 0.
bool IsLowerVersion(std::string_view version, std::string_view other);

}  // namespace package
