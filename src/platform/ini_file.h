// INI files: the grammar of their lines, and a model of sections, keys and values to edit them.
//
// A model belongs to one thread at a time. It owns its sections and they own their keys; a pointer
// that it hands out stays valid until that entry is removed or the model is cleared or destroyed.
#pragma once

#include <iosfwd>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>

#include "os/text.h"

/// Erase the leading, the trailing or both runs of characters that are in `set`.
template <class Char>
void LTrim(std::basic_string<Char>& text, std::type_identity_t<std::basic_string_view<Char>> set) {
  text.erase(0, text.find_first_not_of(set));
}
template <class Char>
void RTrim(std::basic_string<Char>& text, std::type_identity_t<std::basic_string_view<Char>> set) {
  text.erase(text.find_last_not_of(set) + 1);
}
template <class Char>
void Trim(std::basic_string<Char>& text, std::type_identity_t<std::basic_string_view<Char>> set) {
  RTrim(text, set);
  LTrim(text, set);
}

/// Conversions by the locale of the process, up to the first NUL. The result has at most as many
/// units as the text, so longer output is cut there; text that cannot be converted gives "".
std::string wstr_to_str(const std::wstring& text);
std::wstring str_to_wstr(const std::string& text);

/// The grammar of INI lines, for every reader of such files.
namespace ini {

template <class Char>
constexpr bool IsBlank(Char ch) {
  return ch == Char(' ') || ch == Char('\t');
}

template <class Char>
constexpr bool IsLineEnd(Char ch) {
  return ch == Char('\n') || ch == Char('\r');
}

/// A name of a section or a key as the files mean it: without blanks and tabs around it.
template <class Char>
constexpr std::basic_string_view<Char> Name(std::basic_string_view<Char> text) {
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  return text;
}

/// Tells `visitor` what one line is: OnSection(name) for a header, OnKey(name, value) for a key
/// line, nothing for any other line. Names are not trimmed yet. Before the costlier look at a line
/// that is no header, WantsKeysFrom(first character) may decline it.
template <class Char, class Visitor>
void VisitLine(std::basic_string_view<Char> line, Visitor& visitor) {
  while (!line.empty() && IsBlank(line.front())) line.remove_prefix(1);
  if (line.empty()) return;
  const Char first = line.front();
  if (first != Char('[') && !visitor.WantsKeysFrom(first)) return;
  while (!line.empty() && IsLineEnd(line.back())) line.remove_suffix(1);
  if (line.empty()) return;

  if (first == Char('[')) {
    auto visible = line;
    while (IsBlank(visible.back()) || IsLineEnd(visible.back())) visible.remove_suffix(1);
    if (visible.back() == Char(']')) {
      // One character off the whole line: blanks behind the bracket leave it in the name.
      visitor.OnSection(line.substr(1, line.size() - 2));
      return;
    }
    if (!visitor.WantsKeysFrom(first)) return;
  }
  const auto equals = line.find(Char('='));
  if (equals == line.npos || equals == 0) return;
  visitor.OnKey(line.substr(0, equals), line.substr(equals + 1));
}

/// What some editors put before the first line of a narrow file, and what is no part of that line.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

template <class Char>
constexpr std::basic_string_view<Char> WithoutMark(std::basic_string_view<Char> text) {
  if constexpr (std::is_same_v<Char, char>) {
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  }
  return text;
}

template <class Char, class Visitor>
void VisitLines(std::basic_string_view<Char> text, Visitor& visitor) {
  text = WithoutMark(text);
  while (!text.empty()) {
    const auto end = text.find(Char('\n'));
    VisitLine(text.substr(0, end), visitor);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
}

/// Compares names as C strings without ASCII case: negative, 0 or positive. A NUL ends a name.
constexpr int CompareNames(std::string_view left, std::string_view right) {
  const std::size_t common = left.size() < right.size() ? left.size() : right.size();
  for (std::size_t i = 0; i < common; ++i) {
    const char a = ascii::Lower(left[i]);
    const char b = ascii::Lower(right[i]);
    if (a != b) return static_cast<unsigned char>(a) - static_cast<unsigned char>(b);
    if (a == '\0') return 0;
  }
  // The shorter one ends here, as the other may: with a NUL.
  if (left.size() > common) return static_cast<unsigned char>(left[common]);
  if (right.size() > common) return -static_cast<unsigned char>(right[common]);
  return 0;
}

}  // namespace ini

/// The order of narrow names: without case.
struct ci_less_a {
  bool operator()(std::string_view left, std::string_view right) const {
    return ini::CompareNames(left, right) < 0;
  }
};

/// The order of wide names: with case, and only over the length of the shorter one, so that a name
/// counts as equal to each name that it begins.
///
/// That is no equivalence (Port is equal to Ports and to Portal, which differ), yet it orders a set
/// soundly: an entry comes in, or gets a new name, only when no entry is equal to that name, so no
/// two entries in a set begin one another. Among such entries this is the plain dictionary order,
/// and any name asked for splits them into smaller, equal and greater ones, in this sequence.
struct ci_less_w {
  bool operator()(std::wstring_view left, std::wstring_view right) const;
};

template <class Char, class Less>
class IniFile {
 public:
  using String = std::basic_string<Char>;
  using View = std::basic_string_view<Char>;
  class Section;
  class Key;

  /// Orders entries by their names and finds them by a name.
  struct ByName {
    using is_transparent = void;
    template <class Left, class Right>
    bool operator()(const Left& left, const Right& right) const {
      return Less()(NameOf(left), NameOf(right));
    }

   private:
    static View NameOf(View name) { return name; }
    static View NameOf(const std::unique_ptr<Section>& section) {
      return section->GetSectionName();
    }
    static View NameOf(const std::unique_ptr<Key>& key) { return key->GetKeyName(); }
  };
  using Sections = std::set<std::unique_ptr<Section>, ByName>;
  using Keys = std::set<std::unique_ptr<Key>, ByName>;

  /// One key with its value.
  class Key {
   public:
    /// For AddKey.
    Key(Section& section, View name) : section_(section), name_(name) {}

    const String& GetKeyName() const { return name_; }
    const String& GetValue() const { return value_; }
    void SetValue(View value) { value_ = value; }
    /// Returns false, with nothing changed, when the section has a key of that name already; that
    /// includes this key.
    bool SetKeyName(View name);

   private:
    Section& section_;
    String name_;
    String value_;
  };

  /// One section with its keys. Absent keys read as "" and are removed without effect.
  class Section {
   public:
    using CIniKeyA = Key;
    using CIniKeyW = Key;

    /// For AddSection.
    Section(IniFile& file, View name) : file_(file), name_(name) {}
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    const String& GetSectionName() const { return name_; }
    /// As Key::SetKeyName.
    bool SetSectionName(View name);

    /// The key of that name, made when there is none.
    Key* AddKey(View name);
    /// The key or null.
    Key* GetKey(View name) const;
    const Keys& GetKeys() const { return keys_; }
    String GetKeyValue(View name) const;
    void SetKeyValue(View name, View value) { AddKey(name)->SetValue(value); }
    void RemoveKey(View name);
    void RemoveKey(Key* key);
    void RemoveAllKeys() { keys_.clear(); }

   private:
    friend class Key;
    IniFile& file_;
    String name_;
    Keys keys_;
  };

  /// Selects merging when a model is read from a stream: `stream >> CIniMergeA(file)`.
  class Merge {
   public:
    explicit Merge(IniFile& file) : file_(file) {}
    friend std::basic_istream<Char>& operator>>(std::basic_istream<Char>& stream, Merge merge) {
      merge.file_.Load(stream, true);
      return stream;
    }

   private:
    IniFile& file_;
  };

  using CIniSectionA = Section;
  using CIniSectionW = Section;
  using CIniMergeA = Merge;
  using CIniMergeW = Merge;

  IniFile() = default;
  IniFile(const IniFile&) = delete;
  IniFile& operator=(const IniFile&) = delete;

  /// Reads a text into the model, which is cleared first unless `merge` is set. Values that are
  /// there already are overwritten by the text's. A byte order mark before a narrow text is
  /// skipped.
  void Parse(View text, bool merge = false);
  /// The model as text: sections and keys in their order, LF line ends, no comments.
  String Text() const;

  /// The same from a stream, or from a file: false, with the model untouched, when the file cannot
  /// be read.
  void Load(std::basic_istream<Char>& stream, bool merge = false);
  bool Load(const String& file, bool merge = false);
  void Save(std::basic_ostream<Char>& stream) const;
  /// Replaces the file in one step. Returns false, the old file being as it was, on any failure.
  bool Save(const String& file) const;

  friend std::basic_ostream<Char>& operator<<(std::basic_ostream<Char>& stream,
                                              const IniFile& file) {
    file.Save(stream);
    return stream;
  }
  friend std::basic_istream<Char>& operator>>(std::basic_istream<Char>& stream, IniFile& file) {
    file.Load(stream, false);
    return stream;
  }

  /// The section of that name, made when there is none.
  Section* AddSection(View name);
  /// The section or null.
  Section* GetSection(View name) const;
  const Sections& GetSections() const { return sections_; }
  void RemoveSection(View name);
  void RemoveSection(Section* section);
  void RemoveAllSections() { sections_.clear(); }

  /// The value, or the default (or "") when the section or the key is missing.
  String GetKeyValue(View section, View key) const { return GetKeyValue(section, key, View()); }
  String GetKeyValue(View section, View key, View defaultValue) const;
  /// Makes section and key as needed.
  void SetKeyValue(View section, View key, View value) {
    AddSection(section)->SetKeyValue(key, value);
  }
  /// Return false when there is no such entry, else the result of SetSectionName or SetKeyName.
  bool RenameSection(View name, View newName);
  bool RenameKey(View section, View name, View newName);

 private:
  Sections sections_;
};

extern template class IniFile<char, ci_less_a>;
extern template class IniFile<wchar_t, ci_less_w>;

using CIniFileA = IniFile<char, ci_less_a>;
using CIniFileW = IniFile<wchar_t, ci_less_w>;
using CIniMergeA = CIniFileA::Merge;
using CIniMergeW = CIniFileW::Merge;
