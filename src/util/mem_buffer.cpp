#include "util/mem_buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/global_memory.h"

namespace {

constexpr std::uint32_t kMostBytes = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kLongestString = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kUnbounded = -1;
constexpr unsigned int kBlockFlags = GMEM_MOVEABLE | GMEM_ZEROINIT;

}  // namespace

CMemBuffer::CMemBuffer(std::uint32_t growStep) : growStep_(growStep) {}

CMemBuffer::CMemBuffer(unsigned char* block, std::uint32_t size, signed char ownsBlock,
                       std::uint32_t growStep)
    : growStep_(growStep),
      capacity_(block != nullptr ? size : 0),
      length_(growStep == 0 ? capacity_ : 0),
      block_(block),
      ownsBlock_(ownsBlock != 0 ? 1 : 0) {}

CMemBuffer::~CMemBuffer() {
  // Overriders are gone by now: this is our own Free.
  if (ownsBlock_ != 0) CMemBuffer::Free(block_);
}

unsigned char* CMemBuffer::Alloc(std::uint32_t size) {
  void* handle = GlobalAlloc(kBlockFlags, size);
  if (handle == nullptr) return nullptr;
  handle_ = handle;
  return static_cast<unsigned char*>(GlobalLock(handle));
}

unsigned char* CMemBuffer::Realloc(unsigned char*, std::uint32_t size) {
  if (handle_ == nullptr) return nullptr;
  GlobalUnlock(handle_);
  void* handle = GlobalReAlloc(handle_, size, kBlockFlags);
  if (handle == nullptr) return nullptr;
  handle_ = handle;
  return static_cast<unsigned char*>(GlobalLock(handle));
}

void CMemBuffer::Free(unsigned char* block) {
  if (block == nullptr) return;
  if (handle_ == nullptr) {
    if (GlobalLock(block) != nullptr) {
      GlobalFree(block);
    } else {
      std::free(block);
    }
    return;
  }
  GlobalUnlock(handle_);
  GlobalFree(static_cast<char**>(handle_));
  handle_ = nullptr;
}

bool CMemBuffer::GrowFile(std::uint32_t newSize) {
  if (capacity_ >= newSize) return true;
  if (growStep_ == 0) return false;
  const std::uint64_t missing = newSize - capacity_;
  const std::uint64_t steps = (missing + growStep_ - 1) / growStep_;
  const std::uint64_t wanted = capacity_ + steps * growStep_;
  if (wanted > kMostBytes) return false;
  const auto capacity = static_cast<std::uint32_t>(wanted);
  const bool isFirst = block_ == nullptr;
  unsigned char* grown = isFirst ? Alloc(capacity) : Realloc(block_, capacity);
  if (grown == nullptr) return false;
  // After a caller's block was forgotten, too, a new one is the stream's.
  if (isFirst) ownsBlock_ = 1;
  block_ = grown;
  capacity_ = capacity;
  return true;
}

bool CMemBuffer::HasRoomFor(std::uint32_t size) {
  return size <= capacity_ || (GrowFile(size) && size <= capacity_);
}

std::uint32_t CMemBuffer::GetPosition() const { return position_; }

std::uint32_t CMemBuffer::GetLength() const { return length_; }

std::uint32_t CMemBuffer::Seek(std::int64_t offset, std::uint32_t origin) {
  if (origin > 2 || (origin == 2 && offset > 0)) return position_;
  const std::int64_t bases[] = {0, position_, length_};
  std::int64_t target = 0;
  if (__builtin_add_overflow(bases[origin], offset, &target) || target < 0) return position_;
  if (target > length_ &&
      (target > kMostBytes || !HasRoomFor(static_cast<std::uint32_t>(target)))) {
    target = length_;
  }
  position_ = static_cast<std::uint32_t>(target);
  return position_;
}

bool CMemBuffer::SetLength(std::uint32_t newLength) {
  if (!HasRoomFor(newLength)) return false;
  position_ = std::min(position_, newLength);
  length_ = newLength;
  return true;
}

std::uint32_t CMemBuffer::Read(void* buffer, std::uint32_t count) {
  if (buffer == nullptr || count == 0 || position_ >= length_) return 0;
  const std::uint32_t copied = std::min(count, length_ - position_);
  std::memcpy(buffer, block_ + position_, copied);
  position_ += copied;
  return copied;
}

std::uint32_t CMemBuffer::Write(const void* buffer, std::uint32_t count) {
  if (buffer == nullptr || count == 0 || count > kMostBytes - position_) return 0;
  const std::uint32_t end = position_ + count;
  if (!HasRoomFor(end)) return 0;
  std::memcpy(block_ + position_, buffer, count);
  position_ = end;
  length_ = std::max(length_, end);
  return count;
}

void CMemBuffer::Forget() {
  position_ = capacity_ = length_ = 0;
  block_ = nullptr;
  handle_ = nullptr;
}

void CMemBuffer::Close() {
  if (block_ != nullptr && ownsBlock_ != 0) Free(block_);
  Forget();
}

std::uint32_t CMemBuffer::Attach(unsigned char* block, std::uint32_t size, signed char ownsBlock,
                                 std::uint32_t growStep) {
  // The block may be the one that is attached already, now with other rights.
  if (block != block_) Close();
  block_ = block;
  growStep_ = growStep;
  position_ = 0;
  capacity_ = block != nullptr ? size : 0;
  length_ = growStep == 0 ? capacity_ : 0;
  ownsBlock_ = ownsBlock != 0 ? 1 : 0;
  return length_;
}

unsigned char* CMemBuffer::Detach() {
  unsigned char* block = block_;
  Forget();
  return block;
}

unsigned char* CMemBuffer::DetachEx() {
  auto* copy =
      static_cast<unsigned char*>(GlobalAlloc(GMEM_FIXED, std::max<std::uint32_t>(length_, 1)));
  if (copy == nullptr) return nullptr;
  copy[0] = 0;
  if (length_ > 0) std::memcpy(copy, block_, length_);
  Close();
  return copy;
}

bool CMemBuffer::WriteStringContent(const char* text) {
  const std::size_t length = text != nullptr ? std::strlen(text) : 0;
  return length <= kLongestString &&
         Write(text, static_cast<std::uint32_t>(length)) == static_cast<std::uint32_t>(length);
}

bool CMemBuffer::WriteString(const char* text) {
  const std::size_t length = text != nullptr ? std::strlen(text) : 0;
  return length <= kLongestString && WriteString(text, static_cast<std::uint32_t>(length));
}

bool CMemBuffer::WriteString(const void* bytes, std::uint32_t length) {
  return length <= kLongestString && Write(&length, sizeof length) == sizeof length &&
         Write(bytes, length) == length;
}

bool CMemBuffer::ReadString(char* buffer, std::int32_t maxLength) {
  return ReadString(buffer, 0, maxLength);
}

bool CMemBuffer::ReadString(char* buffer, std::int32_t offset, std::int32_t maxLength) {
  char* target = buffer;
  const bool read = ReadStringEx(&target, offset, maxLength);
  if (target != buffer) GlobalFree(target);
  return read;
}

bool CMemBuffer::ReadStringEx(char** buffer, std::int32_t offset, std::int32_t maxLength) {
  if (buffer == nullptr) return false;
  const std::uint32_t start = GetPosition();
  const bool read = ReadStringBody(buffer, offset, maxLength);
  if (!read) Seek(start, 0);
  return read;
}

bool CMemBuffer::ReadStringBody(char** buffer, std::int32_t offset, std::int32_t maxLength) {
  std::int32_t stored = 0;
  if (Read(&stored, sizeof stored) != sizeof stored) return false;
  const bool whole = maxLength == kUnbounded;
  const std::int32_t wanted = whole ? stored : std::min(stored, maxLength);
  if (wanted == 0) return true;
  if (wanted < 0) return false;
  const auto count = static_cast<std::uint32_t>(wanted);
  if (count > GetLength() - GetPosition()) return false;
  if (*buffer != nullptr) return Read(*buffer + offset, count) == count;

  if (!whole || offset != 0) return false;
  char* block = static_cast<char*>(GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, std::size_t{count} + 1));
  if (block == nullptr) return false;
  if (Read(block, count) != count) {
    GlobalFree(static_cast<void*>(block));
    return false;
  }
  *buffer = block;
  return true;
}
