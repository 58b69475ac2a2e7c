#include "platform/global_memory.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>

#include "os/mutex.h"

namespace {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<char, FreeMemory>;

/// A block of no bytes has an address of its own too.
Memory Allocate(std::size_t size, bool zeroed) {
  const std::size_t bytes = size > 0 ? size : 1;
  return Memory(static_cast<char*>(zeroed ? std::calloc(1, bytes) : std::malloc(bytes)));
}

struct Block {
  std::size_t size;
  Memory bytes;
  /// What the handle of a movable block points to; null for a plain block.
  std::unique_ptr<char*> cell;
};

/// All blocks by their handles.
struct Registry {
  Mutex mutex;
  std::map<void*, Block> blocks QV_GUARDED_BY(mutex);

  Block* Find(void* handle) QV_REQUIRES(mutex) {
    const auto found = blocks.find(handle);
    return found != blocks.end() ? &found->second : nullptr;
  }
};

/// Never destroyed, so blocks may be freed in the destructors of other statics. Without blocks it
/// holds no memory: unloading the library leaks nothing.
Registry& Blocks() {
  alignas(Registry) static unsigned char storage[sizeof(Registry)];
  static Registry& registry = *new (storage) Registry;
  return registry;
}

void* Add(std::size_t size, bool movable, bool zeroed) {
  Block block{size, Allocate(size, zeroed), nullptr};
  if (block.bytes == nullptr) return nullptr;
  try {
    if (movable) block.cell = std::make_unique<char*>(block.bytes.get());
    void* handle = movable ? static_cast<void*>(block.cell.get()) : block.bytes.get();
    Registry& registry = Blocks();
    const MutexLock lock(registry.mutex);
    registry.blocks.emplace(handle, std::move(block));
    return handle;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

void* GlobalAlloc(unsigned int flags, std::size_t size) {
  return Add(size, (flags & GMEM_MOVEABLE) != 0, (flags & GMEM_ZEROINIT) != 0);
}

void* GlobalAlloc(std::size_t size) { return Add(size, true, true); }

void* GlobalLock(void* block) {
  Registry& registry = Blocks();
  const MutexLock lock(registry.mutex);
  const Block* found = registry.Find(block);
  return found != nullptr ? found->bytes.get() : nullptr;
}

char* GlobalLock(char** handle) {
  Registry& registry = Blocks();
  const MutexLock lock(registry.mutex);
  const Block* found = registry.Find(handle);
  return found != nullptr && found->cell != nullptr ? found->bytes.get() : nullptr;
}

BOOL GlobalUnlock(void*) { return 1; }

std::size_t GlobalSize(void* block) {
  Registry& registry = Blocks();
  const MutexLock lock(registry.mutex);
  const Block* found = registry.Find(block);
  return found != nullptr ? found->size : 0;
}

void* GlobalReAlloc(void* block, std::size_t size, unsigned int flags) {
  Registry& registry = Blocks();
  const MutexLock lock(registry.mutex);
  Block* found = registry.Find(block);
  if (found == nullptr || found->cell == nullptr) return nullptr;
  auto* bytes = static_cast<char*>(std::realloc(found->bytes.get(), size > 0 ? size : 1));
  if (bytes == nullptr) return nullptr;
  static_cast<void>(found->bytes.release());  // realloc took it
  found->bytes.reset(bytes);
  *found->cell = bytes;
  if (size > found->size && (flags & GMEM_ZEROINIT) != 0) {
    std::memset(bytes + found->size, 0, size - found->size);
  }
  found->size = size;
  return block;
}

void GlobalFree(void* block) {
  Registry& registry = Blocks();
  const MutexLock lock(registry.mutex);
  const Block* found = registry.Find(block);
  if (found != nullptr && found->size > 0) registry.blocks.erase(block);
}

void GlobalFree(char** handle) {
  Registry& registry = Blocks();
  const MutexLock lock(registry.mutex);
  const Block* found = registry.Find(handle);
  if (found != nullptr && found->cell != nullptr) registry.blocks.erase(handle);
}

unsigned int GlobalFlags(void*) { return 0; }
