// An archive of any bytes: nothing is written outside the folder that it is unpacked into, what was
// unpacked are files and folders, within the bounds, and a refusal says why.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "fuzz/fuzz_target.h"
#include "manager/unzip.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kCanary = "untouched";

std::size_t CountEntries(const std::string& folder) {
  const fs::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

void RequirePlainTree(const std::string& folder) {
  std::size_t nodes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const fs::file_type type = entry.symlink_status().type();
    Require(type == fs::file_type::regular || type == fs::file_type::directory,
            "only files and folders are made");
    ++nodes;
  }
  Require(nodes <= 2 * Compress::kMostEntries, "an archive is bounded");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Two levels, so that a name may lead out by one or by two and be seen.
  static const TempFolder outer;
  static const fs::path home = fs::current_path();  // the fuzzer's own paths are relative to it
  static const std::string inner = outer / "inner/";
  static const std::string archive = outer / "archive.zip";
  const std::string folder = inner + "out";
  if (!fs::exists(inner)) {
    fs::create_directory(inner);
    Spit(inner + "file", kCanary);
    Spit(outer / "file", kCanary);
  }
  Spit(archive, {reinterpret_cast<const char*>(data), size});

  Compress compress;
  const bool unpacked = compress.Unzip(archive.c_str(), folder.c_str());
  Require(unpacked == (compress.GetErrorDescription()[0] == '\0'), "a refusal says why");
  const std::string why = compress.GetErrorDescription();
  Require(std::none_of(why.begin(), why.end(), [](char c) { return c >= 0 && c < 0x20; }),
          "the reason is one line");
  RequirePlainTree(folder);
  Require(CountEntries(inner) == 2 && CountEntries(outer.path()) == 3, "nothing is made outside");
  Require(Slurp(inner + "file") == kCanary && Slurp(outer / "file") == kCanary,
          "nothing is changed outside");
  fs::current_path(home);
  fs::remove_all(folder);
  return 0;
}
