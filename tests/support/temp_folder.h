// A folder of a test's own, removed with everything in it at the end of the test.
#pragma once

#include <optional>
#include <string>
#include <string_view>

class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  /// The folder's path, with its trailing "/".
  const std::string& path() const { return path_; }
  /// The path of something in the folder.
  std::string operator/(std::string_view name) const { return path_ + std::string(name); }

 private:
  std::string path_;
};

/// The service keeps its files beside its executable. A program that stands for it calls this first
/// in main: outside, it copies itself into a temporary folder, runs there with the same arguments,
/// removes the folder and gives the exit code; inside, it gives nothing and main goes on.
std::optional<int> RunInTempFolder(char** argv);
/// Inside, where the program was copied from.
std::string ProgramsOwnFolder();

/// A file's whole content, "" when it cannot be read; and the opposite.
std::string Slurp(const std::string& path);
void Spit(const std::string& path, std::string_view content);
