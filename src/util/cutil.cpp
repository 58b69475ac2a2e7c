#include "util/cutil.h"

#include <idn2.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/identifier.h"
#include "platform/os.h"
#include "platform/system_time.h"
#include "platform/text.h"

namespace {

constexpr std::size_t kPathBytes = 1024;

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

bool LabelToAscii(const std::string& label, std::string* ascii) {
  if (IsAscii(label)) {
    *ascii += label;
    return true;
  }
  char* converted = nullptr;
  const int rc =
      ::idn2_to_ascii_8z(label.c_str(), &converted, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
  const std::unique_ptr<char, decltype(&::idn2_free)> owner(converted,
                                                            [](void* text) { ::idn2_free(text); });
  if (rc != IDN2_OK) return false;
  *ascii += converted;
  return true;
}

}  // namespace

void CUtil::GetModulePath(char* out) {
  constexpr std::string_view kInsideBundle = "/Contents/MacOS/";
  std::string path = os::ExecutablePath();
  if (const auto bundle = path.rfind(kInsideBundle); bundle != std::string::npos) {
    path.resize(bundle);
  }
  lstrcpyn(out, path.c_str(), kPathBytes + 1);
}

void CUtil::GetDllPath(char* out) {
  char path[kPathBytes + 1];
  GetModulePath(path);
  std::string_view folder(path);
  const auto end = folder.find_last_of("/\\");
  std::memset(out, 0, kPathBytes);
  if (end == std::string_view::npos) return;
  folder = folder.substr(0, std::min(end, kPathBytes - 2));
  std::memcpy(out, folder.data(), folder.size());
  out[folder.size()] = '/';
}

int CUtil::CreateUUID(char* out) {
  std::memset(out, 0, kPathBytes);
  std::memcpy(out, MakeIdentifier().data(), kIdentifierLength);
  return static_cast<int>(kIdentifierLength);
}

_SYSTEMTIME CUtil::GetLocalTime() {
  _SYSTEMTIME now{};
  GetSystemTime(&now);
  return now;
}

void CUtil::RemoveChar(char* s, char c) { *std::remove(s, s + std::strlen(s), c) = '\0'; }

void CUtil::TrimWindowsFileName(char* s) {
  for (const char ch : {' ', '\\', '/'}) ::TrimRight(s, ch);
}

void CUtil::TrimRight(char* s, char c) { ::TrimRight(s, c); }

int CUtil::ReverseFindChar(const char* s, char c) { return ::ReverseFindChar(s, c); }

void CUtil::find_and_replace(std::string& s, const std::string& from, const std::string& to) {
  if (from.empty() || from == to) return;
  std::size_t end = 0;
  std::string replaced;
  for (std::size_t at; (at = s.find(from, end)) != std::string::npos; end = at + from.size()) {
    replaced.append(s, end, at - end).append(to);
  }
  if (end == 0) return;
  s = replaced.append(s, end);
}

bool CUtil::IdnToAscii(const char* in, char* out) {
  if (in == nullptr || out == nullptr) return false;
  std::string ascii;
  std::string_view rest(in);
  while (true) {
    const auto dot = rest.find('.');
    if (!LabelToAscii(std::string(rest.substr(0, dot)), &ascii)) return false;
    if (dot == std::string_view::npos) break;
    ascii += '.';
    rest.remove_prefix(dot + 1);
  }
  if (ascii.size() >= kPathBytes) return false;
  lstrcpyn(out, ascii.c_str(), ascii.size() + 1);
  return true;
}
