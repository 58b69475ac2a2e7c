// Whether what was unpacked is what its signer made.
#pragma once

#include <optional>
#include <string>

#include "package/manifest.h"
#include "package/signature.h"

namespace package {

/// The manifest of an unpacked package, whose folder ends in "/". Where keys are required, its
/// signature is verified before it is read: over the very bytes that are read. Nothing when the
/// signature or the manifest is not good; `why` is then a sentence that tells the reason.
std::optional<Manifest> LoadManifest(const std::string& folder, Kind kind, const UpdateKeys& keys,
                                     std::string* why);

/// Whether a folder holds the files of the manifest with their checksums and nothing else but the
/// manifest and its signature (folders do not count). If not, `why` tells of the first.
bool HoldsExactly(const std::string& folder, const Manifest& manifest, std::string* why);

/// Whether a file is a program or a library: by its first bytes (ELF, Mach-O, PE, a script's "#!"),
/// its mode, or its name. A file that cannot be read counts.
bool IsProgram(const std::string& path);

}  // namespace package
