#include "platform/program_words.h"

#include "platform/os.h"

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> OwnEnvironment() {
  std::vector<std::string> texts;
  for (char** entry = os::Environment(); entry != nullptr && *entry != nullptr; ++entry) {
    texts.emplace_back(*entry);
  }
  return texts;
}
