// A settings file of any text, up to the first NUL a value to store in it: the model reads what it
// writes, single values agree with the model, and storing one value changes no other.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "platform/ini_file.h"
#include "platform/profile.h"
#include "support/temp_folder.h"

namespace {

constexpr const char* kSection = "QV";
constexpr const char* kKey = "Stored";
constexpr const char* kMissing = "\x01missing";
/// Each look-up reads the file: more would only make the inputs slower.
constexpr std::size_t kMostLookups = 16;

std::string Stored(const std::string& section, const std::string& key, const std::string& file) {
  std::string value(1 << 16, '\0');
  GetPrivateProfileStringA(section.c_str(), key.c_str(), kMissing, value.data(),
                           static_cast<DWORD>(value.size()), file.c_str());
  return value.c_str();
}

std::string OneLine(std::string text) {
  std::erase_if(text, [](char ch) { return ch == '\r' || ch == '\n' || ch == '\0'; });
  return text;
}

void RequireLookupsAgree(const CIniFileA& model, const std::string& file) {
  std::size_t lookups = 0;
  for (const auto& section : model.GetSections()) {
    for (const auto& key : section->GetKeys()) {
      if (++lookups > kMostLookups) return;
      // Asked by C strings, both sides trim what stands before a NUL in the name.
      const std::string sectionName = section->GetSectionName().c_str();
      const std::string keyName = key->GetKeyName().c_str();
      const std::string value = model.GetKeyValue(sectionName, keyName, kMissing);
      Require(Stored(sectionName, keyName, file) == value.c_str(), "a single value is the model's");
    }
  }
}

void RequireOthersKept(const CIniFileA& before, const CIniFileA& after) {
  std::size_t keysBefore = 0;
  std::size_t keysAfter = 0;
  for (const auto& section : before.GetSections()) {
    for (const auto& key : section->GetKeys()) {
      ++keysBefore;
      if (before.GetSection(kSection) == section.get() && section->GetKey(kKey) == key.get()) {
        continue;
      }
      Require(after.GetKeyValue(section->GetSectionName(), key->GetKeyName()) == key->GetValue(),
              "storing one value keeps the others");
    }
  }
  for (const auto& section : after.GetSections()) keysAfter += section->GetKeys().size();
  const bool isNew = before.GetKeyValue(kSection, kKey, kMissing) == kMissing;
  Require(keysAfter == keysBefore + (isNew ? 1 : 0), "storing one value adds no other");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TempFolder folder;
  static const std::string file = folder / "settings.ini";
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t nul = input.find('\0');
  const std::string text(nul == input.npos ? input : input.substr(nul + 1));

  CIniFileA model;
  model.Parse(text);
  CIniFileA again;
  again.Parse(model.Text());
  Require(again.Text() == model.Text(), "a model reads back what it wrote");

  Spit(file, text);
  RequireLookupsAgree(model, file);
  if (nul == input.npos) return 0;

  const std::string value(input.substr(0, nul));
  Require(WritePrivateProfileStringA(kSection, kKey, value.c_str(), file.c_str()) == 1,
          "any value can be stored");
  Require(Stored(kSection, kKey, file) == OneLine(value), "a stored value reads back in one line");
  CIniFileA after;
  Require(after.Load(file), "a stored file loads");
  RequireOthersKept(model, after);
  return 0;
}
