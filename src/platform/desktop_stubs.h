// Desktop calls that this build has no desktop for: each gives the fixed answer of a call that
// showed or found nothing.
#pragma once

#include <cstddef>

#include "platform/win_types.h"

/// Returns 1 and shows nothing.
int MessageBoxEx(void* window, const char* text, const char* caption, unsigned int type,
                 unsigned short language);
/// The calls below return 0.
int MessageBox(void* window, const char* text, const char* caption, unsigned int type);
void* GetWindow(void* window, unsigned int command);
void* GetParent(void* window);
void* GetModuleHandle(const char* name);
/// 0: the memory always counts as readable.
BOOL IsBadReadPtr(const void* memory, std::size_t size);

/// Compares two 3-byte RGB triples as 24-bit numbers: negative, 0 or positive.
int CompareColor(const void* left, const void* right);
/// Sorts an array of 4-byte RGB quads by their colour.
void SortColor(void* quads, unsigned int count);
/// The toolkit colours, images and pools of the desktop: always null, false or nothing.
void* RGBToNSColor(unsigned int color);
unsigned int NSColorToRGB(void* color);
void* CreateAutoReleasePool();
void DrainPool(void* pool);
void* CloneImage(void* image, int width, int height, int resolution);
void ReleaseImage(void* image);
void* GetCurentActivateApp();
