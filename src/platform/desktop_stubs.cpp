#include "platform/desktop_stubs.h"

#include <cstdlib>

namespace {

using Byte = unsigned char;

int Number(const void* triple) {
  const Byte* colour = static_cast<const Byte*>(triple);
  return colour[0] << 16 | colour[1] << 8 | colour[2];
}

constexpr std::size_t kQuadBytes = 4;

}  // namespace

int MessageBoxEx(void*, const char*, const char*, unsigned int, unsigned short) { return 1; }

int MessageBox(void*, const char*, const char*, unsigned int) { return 0; }

void* GetWindow(void*, unsigned int) { return nullptr; }

void* GetParent(void*) { return nullptr; }

void* GetModuleHandle(const char*) { return nullptr; }

BOOL IsBadReadPtr(const void*, std::size_t) { return 0; }

int CompareColor(const void* left, const void* right) { return Number(left) - Number(right); }

void SortColor(void* quads, unsigned int count) {
  if (quads != nullptr) std::qsort(quads, count, kQuadBytes, CompareColor);
}

void* RGBToNSColor(unsigned int) { return nullptr; }

unsigned int NSColorToRGB(void*) { return 0; }

void* CreateAutoReleasePool() { return nullptr; }

void DrainPool(void*) {}

void* CloneImage(void*, int, int, int) { return nullptr; }

void ReleaseImage(void*) {}

void* GetCurentActivateApp() { return nullptr; }
