#include "platform/profile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
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

/// Keeps other writers of settings out of the file's folder. A lock on the folder leaves nothing
/// behind, however the writer ends. Where the file system has no locks, there is none to wait for.
/// Returns 0, or EWOULDBLOCK when another holder kept it all the time.
int LockFolderOf(const std::string& file, Descriptor* lock) {
  constexpr std::chrono::seconds kPatience(4);
  const std::size_t slash = file.rfind('/');
  const std::string folder = slash == file.npos ? "." : file.substr(0, slash + 1);
  *lock = Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!*lock) return 0;  // the write itself tells what is wrong with the folder
  const int error = LockUntil(std::chrono::steady_clock::now() + kPatience, lock->get());
  return error == EWOULDBLOCK ? error : 0;
}

int Store(std::string_view section, const std::function<ProfileTexts(const ProfileReader&)>& change,
          const char* file) {
  if (file == nullptr) return EINVAL;
  const std::string target = FollowLinks(file);
  Descriptor lock;
  if (const int busy = LockFolderOf(target, &lock)) return busy;
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
  return WriteWholeFile(target.c_str(), model.Text(), kNewFileMode);
}

}  // namespace

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
  ProfileTexts texts;
  for (const ProfileEntry& entry : entries) texts.emplace_back(entry.key, entry.value);
  return ChangePrivateProfile(
      section, [&](const ProfileReader&) { return texts; }, file);
}

BOOL ChangePrivateProfile(const char* section,
                          const std::function<ProfileTexts(const ProfileReader&)>& change,
                          const char* file) {
  const int error = Store(View(section), change, file);
  if (error == 0) return 1;
  errno = error;
  return 0;
}
