// A file-like stream over one block of memory: position, length and capacity, growth in fixed
// steps, and strings with their length in front.
//
// All sizes, positions and offsets are bytes. Operations tell failure by their result, none throws,
// and one that failed leaves the content as it was. A stream belongs to one thread at a time.
//
// Who owns the block: a block that the stream allocated is the stream's, which frees it in Close
// and in its destructor. An attached block stays the caller's unless `ownsBlock` is set; then it is
// a plain block of GlobalAlloc (GMEM_FIXED), freed with GlobalFree, or one of malloc, freed with
// free.
//
// A derived class may take memory from elsewhere: growth goes through Alloc, Realloc and GrowFile,
// Close through Free, the strings through GetPosition, GetLength, Seek, Read and Write. One that
// overrides Free calls Close in its own destructor, as ours knows no memory but the above.
#pragma once

#include <cstdint>

#include "platform/win_types.h"

class CMemBuffer {
 public:
  /// An empty stream that grows by whole steps; with a step of 0 it stays empty.
  explicit CMemBuffer(std::uint32_t growStep);
  /// See Attach.
  CMemBuffer(unsigned char* block, std::uint32_t size, signed char ownsBlock,
             std::uint32_t growStep);
  CMemBuffer(const CMemBuffer&) = delete;
  CMemBuffer& operator=(const CMemBuffer&) = delete;

  /// A movable block of zero bytes, so that what a seek skips over holds nothing of the heap. The
  /// stream remembers its handle: only for a stream without a block. Null on failure.
  virtual unsigned char* Alloc(std::uint32_t size);
  /// The stream's block with another size, new bytes zero. Null, the block unchanged, on failure
  /// and for a block without a handle: attached blocks do not grow.
  virtual unsigned char* Realloc(unsigned char* block, std::uint32_t size);
  /// Frees the block by the handle if there is one, else as a plain block or one of malloc.
  virtual void Free(unsigned char* block);
  /// Makes room for `newSize` bytes by whole grow steps.
  virtual bool GrowFile(std::uint32_t newSize);
  virtual ~CMemBuffer();

  virtual std::uint32_t GetPosition() const;
  /// Moves the position to `offset` from the start (origin 0), the position (1) or the end (2; such
  /// an offset is not positive). Beyond the length it makes room, or stops at the length when there
  /// is none to be had; the length itself stays. A move that is refused leaves the position.
  /// Returns the position.
  virtual std::uint32_t Seek(std::int64_t offset, std::uint32_t origin);
  /// Cuts or extends the content, making room as needed.
  virtual bool SetLength(std::uint32_t newLength);
  /// Copies up to `count` bytes of content and returns how many.
  virtual std::uint32_t Read(void* buffer, std::uint32_t count);
  /// Returns `count`, or 0 when not all of it fits; then nothing is written. The source lies
  /// outside the stream's block.
  virtual std::uint32_t Write(const void* buffer, std::uint32_t count);
  /// Frees an own block and forgets an attached one. The stream is empty then and may grow again.
  virtual void Close();
  virtual std::uint32_t GetLength() const;

  /// Closes the stream and wraps another block: as full content with a grow step of 0, else as room
  /// for content. Null is a block of no bytes. Returns the length.
  std::uint32_t Attach(unsigned char* block, std::uint32_t size, signed char ownsBlock,
                       std::uint32_t growStep);
  /// Forgets the block without freeing it and returns it. One that the stream allocated is then the
  /// caller's to free by its handle, which only Handle tells, and only before.
  unsigned char* Detach();
  /// The handle of a block that the stream allocated, null for other blocks.
  void* Handle() const { return handle_; }
  /// A copy of the content, 1 byte of 0 for none, that the caller frees with GlobalFree. Closes the
  /// stream; null, the stream untouched, when there is no memory.
  unsigned char* DetachEx();

  // Strings: a length of 4 bytes in the host's order, then that many bytes. Null counts as "".

  /// Writes the text's bytes alone.
  bool WriteStringContent(const char* text);
  /// No string is longer than 2,147,483,647 bytes. When there is room for the length only, that is
  /// written.
  bool WriteString(const char* text);
  bool WriteString(const void* bytes, std::uint32_t length);

  /// Reads a string's first `maxLength` bytes to `buffer` + `offset`, without a NUL behind them.
  /// The rest of a longer string stays in the stream, in front of the position. With a maxLength of
  /// -1 it reads the whole string, which the caller knows to fit; without a buffer, it skips it.
  /// False, the position unchanged, when the stream holds no such string: it ends too early, or
  /// the length is negative or more than what is left. Nothing is allocated for such a length.
  bool ReadString(char* buffer, std::int32_t maxLength);
  bool ReadString(char* buffer, std::int32_t offset, std::int32_t maxLength);
  /// The same into `*buffer`. When that is null, offset 0 and maxLength -1, a string that is not
  /// empty goes into a new block with a NUL behind it, stored in `*buffer` for the caller, who
  /// frees it with GlobalFree. `*buffer` stays null for an empty string and on failure.
  bool ReadStringEx(char** buffer, std::int32_t offset, std::int32_t maxLength);

 protected:
  std::uint32_t growStep_;
  std::uint32_t position_ = 0;
  std::uint32_t capacity_ = 0;
  std::uint32_t length_ = 0;
  unsigned char* block_ = nullptr;
  BOOL ownsBlock_ = 1;
  void* handle_ = nullptr;

 private:
  bool HasRoomFor(std::uint32_t size);
  void Forget();
  bool ReadStringBody(char** buffer, std::int32_t offset, std::int32_t maxLength);
};
