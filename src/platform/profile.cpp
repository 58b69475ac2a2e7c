#include "platform/profile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <string>

#include "os/file.h"
#include "platform/ini_file.h"
#include "platform/profile_view.h"

namespace {

constexpr mode_t kNewFileMode = 0666;

std::string_view View(const char* text) { return text != nullptr ? text : std::string_view(); }

/// Whether a key line would be read again as this key with this value. A name that is empty or
/// holds "=" would not, nor would one that turns its line into a section header.
bool ReadsBack(const std::string& name, const std::string& value) {
  struct {
    bool WantsKeysFrom(char) const { return true; }
    void OnSection(std::string_view) {}
    void OnKey(std::string_view key, std::string_view text) { same = key == name && text == value; }
    std::string_view name;
    std::string_view value;
    bool same = false;
  } line{name, value};
  ini::VisitLine(std::string_view(name + "=" + value), line);
  return line.same;
}

std::string OneLine(std::string_view text) {
  std::string line(text);
  std::erase_if(line, [](char ch) { return ch == '\r' || ch == '\n' || ch == '\0'; });
  return line;
}

/// Another account's file of that name is no lock of ours: it could be locked for ever.
bool IsAnothers(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && status.st_uid != ::geteuid();
}

int Write(const std::string& target, const std::string& text, const std::string& old) {
  const int error = WriteWholeFile(target.c_str(), text, kNewFileMode);
  if (!MayBeTheFolder(error)) return error;
  // Blank lines up to the old end first: whoever looks in between, or after an end in between, sees
  // no rest of the old text behind the new.
  std::string padded = text;
  padded.resize(std::max(text.size(), old.size()), '\n');
  const int inPlace = OverwriteFile(target.c_str(), padded);
  if (inPlace == ENOENT) return error;
  if (inPlace != 0) {
    OverwriteFile(target.c_str(), old);  // for which there was room
    return inPlace;
  }
  // Blank lines that cannot be cut off do no harm.
  if (padded.size() > text.size()) OverwriteFile(target.c_str(), text);
  return 0;
}

int Store(std::string_view section, const ProfileChange& change, const char* file) {
  if (file == nullptr) return EINVAL;
  const std::string target = FollowLinks(file);
  std::string content;
  const int error = ReadWholeFile(target.c_str(), &content);
  if (error != 0 && error != ENOENT) return error;

  CIniFileA model;
  model.Parse(content);
  CIniFileA::Section* stored = model.AddSection(OneLine(section));
  const ProfileTexts texts =
      change([stored](std::string_view key) { return stored->GetKeyValue(key); });
  if (texts.empty()) return 0;
  for (const auto& [name, text] : texts) {
    std::string key = OneLine(name);
    Trim(key, " \t");
    const std::string value = OneLine(text);
    if (!ReadsBack(key, value)) return EINVAL;
    stored->SetKeyValue(key, value);
  }
  const std::string_view mark = content.starts_with(ini::kByteOrderMark) ? ini::kByteOrderMark : "";
  return Write(target, std::string(mark) + model.Text(), content);
}

}  // namespace

ProfileLock::ProfileLock(const char* file) {
  constexpr std::chrono::seconds kPatience(4);
  if (file == nullptr) return;
  try {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    const std::string target = FollowLinks(file);
    const std::string path = HiddenBeside(target, ".lock");
    if (IsAnothers(path)) return;
    const int error = OpenLocked(path, end, &held_);
    if (error == 0 || error == EWOULDBLOCK) return;
    // Where no file can be made beside it, writers write over it and take turns by the file itself.
    Descriptor itself(::open(target.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (itself && LockUntil(end, itself.get()) == 0) held_ = std::move(itself);
  } catch (const std::exception&) {
    held_ = Descriptor();  // without memory there is no write either
  }
}

DWORD GetPrivateProfileStringA(const char* section, const char* key, const char* defaultValue,
                               char* buffer, DWORD size, const char* file) {
  const ProfileView look(file);
  const std::string_view value = look.Find(View(section), View(key), View(defaultValue));
  if (buffer != nullptr && size > 0) {
    const std::size_t room = size > 1 ? size - 2 : 0;
    // The copy is a C string: it ends at a NUL in the value.
    const std::size_t copied = std::min({room, value.size(), value.find('\0')});
    value.copy(buffer, copied);
    buffer[copied] = '\0';
  }
  return static_cast<DWORD>(value.size());
}

BOOL WritePrivateProfileStringA(const char* section, const char* key, const char* value,
                                const char* file) {
  const ProfileEntry entry{View(key), View(value)};
  return WritePrivateProfileEntries(section, {&entry, 1}, file);
}

BOOL WritePrivateProfileEntries(const char* section, std::span<const ProfileEntry> entries,
                                const char* file) {
  return ChangePrivateProfile(
      section,
      [entries](const ProfileReader&) {
        ProfileTexts texts;
        for (const ProfileEntry& entry : entries) texts.emplace_back(entry.key, entry.value);
        return texts;
      },
      file);
}

BOOL ChangePrivateProfile(const char* section, const ProfileChange& change, const char* file) {
  return ChangePrivateProfile(section, change, file, ProfileLock(file));
}

BOOL ChangePrivateProfile(const char* section, const ProfileChange& change, const char* file,
                          const ProfileLock&) {
  int error = ENOMEM;
  try {
    error = Store(View(section), change, file);
  } catch (const std::exception&) {
  }
  if (error == 0) return 1;
  errno = error;
  return 0;
}
