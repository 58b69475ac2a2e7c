#include "platform/ini_file.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <istream>
#include <optional>
#include <ostream>

#include "os/file.h"

std::string wstr_to_str(const std::wstring& text) {
  std::string result(text.size(), '\0');
  const std::size_t length = std::wcstombs(result.data(), text.c_str(), result.size());
  result.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
  return result;
}

std::wstring str_to_wstr(const std::string& text) {
  std::wstring result(text.size(), L'\0');
  const std::size_t length = std::mbstowcs(result.data(), text.c_str(), result.size());
  result.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
  return result;
}

bool ci_less_w::operator()(std::wstring_view left, std::wstring_view right) const {
  return std::wcsncmp(left.data(), right.data(), std::min(left.size(), right.size())) < 0;
}

namespace {

constexpr mode_t kFileMode = 0666;

/// Between a file's bytes and the characters of a model: nothing to do for narrow ones; wide ones
/// go by the locale of the process, and what it cannot convert gives nothing rather than a part.
template <class Char>
struct Encoding;

template <>
struct Encoding<char> {
  static std::string Path(const std::string& file) { return file; }
  static std::optional<std::string> Decode(std::string bytes) { return bytes; }
  static std::optional<std::string> Encode(std::string text) { return text; }
};

template <>
struct Encoding<wchar_t> {
  static std::string Path(const std::wstring& file) { return wstr_to_str(file); }

  static std::optional<std::wstring> Decode(std::string_view bytes) {
    std::wstring text;
    std::mbstate_t state{};
    while (!bytes.empty()) {
      wchar_t ch = 0;
      const std::size_t used = std::mbrtowc(&ch, bytes.data(), bytes.size(), &state);
      if (used > bytes.size()) return std::nullopt;
      text += ch;
      bytes.remove_prefix(std::max<std::size_t>(used, 1));  // a NUL counts as 0
    }
    return text;
  }

  static std::optional<std::string> Encode(std::wstring_view text) {
    std::string bytes;
    std::mbstate_t state{};
    for (const wchar_t ch : text) {
      char unit[MB_LEN_MAX];
      const std::size_t count = std::wcrtomb(unit, ch, &state);
      if (count > sizeof unit) return std::nullopt;
      bytes.append(unit, count);
    }
    return bytes;
  }
};

/// The operations that sections of a file and keys of a section have in common.
template <class Set, class View>
auto* Find(const Set& entries, View name) {
  const auto found = entries.find(ini::Name(name));
  return found != entries.end() ? found->get() : nullptr;
}

template <class Set, class Owner, class View>
auto* Add(Set& entries, Owner& owner, View name) {
  if (auto* existing = Find(entries, name)) return existing;
  using Entry = typename Set::value_type::element_type;
  return entries.insert(std::make_unique<Entry>(owner, ini::Name(name))).first->get();
}

template <class Set, class View>
void Remove(Set& entries, View name) {
  const auto found = entries.find(ini::Name(name));
  if (found != entries.end()) entries.erase(found);
}

template <class Set, class Entry, class View>
void Remove(Set& entries, const Entry* entry, View name) {
  const auto found = entries.find(name);
  if (found != entries.end() && found->get() == entry) entries.erase(found);
}

template <class Set, class View, class String>
bool Rename(Set& entries, String& name, View newName) {
  if (Find(entries, newName) != nullptr) return false;
  auto node = entries.extract(entries.find(View(name)));
  name = ini::Name(newName);
  entries.insert(std::move(node));
  return true;
}

/// Puts the lines of a text into a model.
template <class File>
struct Builder {
  File& file;
  typename File::Section* section = nullptr;

  template <class Char>
  bool WantsKeysFrom(Char) const {
    return section != nullptr;
  }
  void OnSection(typename File::View name) { section = file.AddSection(name); }
  void OnKey(typename File::View name, typename File::View value) {
    section->SetKeyValue(name, value);
  }
};

}  // namespace

template <class Char, class Less>
bool IniFile<Char, Less>::Key::SetKeyName(View name) {
  return Rename(section_.keys_, name_, name);
}

template <class Char, class Less>
bool IniFile<Char, Less>::Section::SetSectionName(View name) {
  return Rename(file_.sections_, name_, name);
}

template <class Char, class Less>
auto IniFile<Char, Less>::Section::AddKey(View name) -> Key* {
  return Add(keys_, *this, name);
}

template <class Char, class Less>
auto IniFile<Char, Less>::Section::GetKey(View name) const -> Key* {
  return Find(keys_, name);
}

template <class Char, class Less>
auto IniFile<Char, Less>::Section::GetKeyValue(View name) const -> String {
  const Key* key = GetKey(name);
  return key != nullptr ? key->GetValue() : String();
}

template <class Char, class Less>
void IniFile<Char, Less>::Section::RemoveKey(View name) {
  Remove(keys_, name);
}

template <class Char, class Less>
void IniFile<Char, Less>::Section::RemoveKey(Key* key) {
  if (key != nullptr) Remove(keys_, key, View(key->GetKeyName()));
}

template <class Char, class Less>
void IniFile<Char, Less>::Parse(View text, bool merge) {
  if (!merge) RemoveAllSections();
  Builder<IniFile> builder{*this};
  ini::VisitLines(text, builder);
}

template <class Char, class Less>
auto IniFile<Char, Less>::Text() const -> String {
  String text;
  for (const auto& section : sections_) {
    (((text += Char('[')) += section->GetSectionName()) += Char(']')) += Char('\n');
    for (const auto& key : section->GetKeys()) {
      (((text += key->GetKeyName()) += Char('=')) += key->GetValue()) += Char('\n');
    }
  }
  return text;
}

template <class Char, class Less>
void IniFile<Char, Less>::Load(std::basic_istream<Char>& stream, bool merge) {
  if (!merge) RemoveAllSections();
  Builder<IniFile> builder{*this};
  String line;
  for (bool isFirst = true; std::getline(stream, line); isFirst = false) {
    ini::VisitLine(isFirst ? ini::WithoutMark(View(line)) : View(line), builder);
  }
}

template <class Char, class Less>
bool IniFile<Char, Less>::Load(const String& file, bool merge) {
  std::string bytes;
  if (ReadWholeFile(Encoding<Char>::Path(file).c_str(), &bytes) != 0) return false;
  const auto text = Encoding<Char>::Decode(std::move(bytes));
  if (!text) return false;
  Parse(*text, merge);
  return true;
}

template <class Char, class Less>
void IniFile<Char, Less>::Save(std::basic_ostream<Char>& stream) const {
  stream << Text();
}

template <class Char, class Less>
bool IniFile<Char, Less>::Save(const String& file) const {
  const auto bytes = Encoding<Char>::Encode(Text());
  return bytes && WriteWholeFile(Encoding<Char>::Path(file).c_str(), *bytes, kFileMode) == 0;
}

template <class Char, class Less>
auto IniFile<Char, Less>::AddSection(View name) -> Section* {
  return Add(sections_, *this, name);
}

template <class Char, class Less>
auto IniFile<Char, Less>::GetSection(View name) const -> Section* {
  return Find(sections_, name);
}

template <class Char, class Less>
void IniFile<Char, Less>::RemoveSection(View name) {
  Remove(sections_, name);
}

template <class Char, class Less>
void IniFile<Char, Less>::RemoveSection(Section* section) {
  if (section != nullptr) Remove(sections_, section, View(section->GetSectionName()));
}

template <class Char, class Less>
auto IniFile<Char, Less>::GetKeyValue(View section, View key, View defaultValue) const -> String {
  const Section* found = GetSection(section);
  const Key* entry = found != nullptr ? found->GetKey(key) : nullptr;
  return entry != nullptr ? entry->GetValue() : String(defaultValue);
}

template <class Char, class Less>
bool IniFile<Char, Less>::RenameSection(View name, View newName) {
  Section* section = GetSection(name);
  return section != nullptr && section->SetSectionName(newName);
}

template <class Char, class Less>
bool IniFile<Char, Less>::RenameKey(View section, View name, View newName) {
  const Section* found = GetSection(section);
  Key* key = found != nullptr ? found->GetKey(name) : nullptr;
  return key != nullptr && key->SetKeyName(newName);
}

template class IniFile<char, ci_less_a>;
template class IniFile<wchar_t, ci_less_w>;
