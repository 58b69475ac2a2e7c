// Reader-writer locks with time-outs in which waiting writers go before new readers.
//
// Time-outs are in milliseconds: 0 does not wait, 0x7FFFFFFF waits without limit. A
// thread first gives way a few times; longer waits poll, so a waiter reacts within about two
// milliseconds. A lock must outlive every call on it.
//
// State of a lock, and what an arriving thread meets:
//
//   writers counted   readers holding   a new reader       a new writer
//   0                 0                 enters             enters
//   0                 some              enters             waits for the readers
//   some, one holds   0                 waits              waits for the holder
//   some, all wait    some              waits              waits for the readers
//
// A release by a writer hands the lock to another waiting writer before any reader.
#pragma once

#include <cstdint>
#include <new>
#include <vector>

#include "os/mutex.h"
#include "platform/sync.h"

/// The plain lock: it knows no owners, so a thread that acquires it twice waits for itself. Any
/// thread may call any operation; a release of what is not held changes nothing.
class QV_CAPABILITY("lock") CReaderWriterLockNonReentrance {
 public:
  CReaderWriterLockNonReentrance();
  ~CReaderWriterLockNonReentrance();
  CReaderWriterLockNonReentrance(const CReaderWriterLockNonReentrance&) = delete;
  CReaderWriterLockNonReentrance& operator=(const CReaderWriterLockNonReentrance&) = delete;

  /// True when the lock was acquired, false when the time ran out.
  bool AcquireReaderLock(unsigned int timeoutMs);
  void ReleaseReaderLock();
  /// A writer that waited, and whose time runs out while nobody holds the lock, gets it all the
  /// same.
  bool AcquireWriterLock(unsigned int timeoutMs);
  void ReleaseWriterLock();

  /// Turns the caller's write hold into a read hold; waiting writers go on waiting for it.
  void DowngradeFromWriterLock();
  /// Turns the caller's read hold into a write hold: at once for the only reader, else by giving
  /// the read hold up and waiting as a writer, so others may write in between. On failure the
  /// caller has its read hold again, however long that takes; a time-out of 0 fails at once.
  bool UpgradeToWriterLock(unsigned int timeoutMs);

  /// The section that guards the counts, for callers that look at several things at once.
  void EnterCS() { EnterCriticalSection(&section_); }
  void LeaveCS() { LeaveCriticalSection(&section_); }

 protected:
  // All below are called, and return, inside the critical section.
  bool EnterAsReader(unsigned int timeoutMs);
  bool EnterAsWriter(unsigned int timeoutMs);
  void LeaveAsReader();
  void LeaveAsWriter();
  void Downgrade();
  bool Upgrade(unsigned int timeoutMs);

 private:
  class Deadline;
  bool WaitAsReader(unsigned int timeoutMs);
  bool WaitAsWriter(unsigned int timeoutMs);
  template <class Condition>
  bool GiveWayUntil(Condition isMet);
  void WaitOutsideSection(EventHandle event, unsigned int timeoutMs);
  void CountWriter();
  void UncountWriter();
  void ConvertOnlyReader();

  CriticalSection section_;
  EventHandle writerEvent_ = nullptr;  // auto-reset; exists while a writer waits or may have to
  EventHandle readerEvent_ = nullptr;  // manual-reset; exists while a reader waits
  std::uint32_t writers_ = 0;          // holding or waiting
  std::uint32_t readers_ = 0;          // holding
  std::uint32_t waitingReaders_ = 0;
  bool writing_ = false;  // one of the counted writers holds the lock
};

/// The lock that knows its owners: a thread may acquire it again, read while it writes, and write
/// while it reads (an upgrade, as above). Holds are counted per thread, up to 65,535 of a kind. A
/// thread's first acquisition needs memory and fails without.
class QV_CAPABILITY("lock") CReaderWriterLock : private CReaderWriterLockNonReentrance {
 public:
  bool AcquireReaderLock(unsigned int timeoutMs);
  void ReleaseReaderLock();
  bool AcquireWriterLock(unsigned int timeoutMs);
  /// The last write release of a thread that still reads leaves it a read hold.
  void ReleaseWriterLock();
  /// Gives up every hold of the calling thread at once.
  void ReleaseAllLocks();

  /// The calling thread's holds: reads in the low 16 bits, writes in the high 16 bits.
  std::uint32_t GetCurrentThreadStatus();
  void GetCurrentThreadStatus(std::uint32_t& readers, std::uint32_t& writers);

 private:
  struct SThreadStateInfo {
    std::uint32_t threadId;
    std::uint32_t state;
  };
  SThreadStateInfo* Find(std::uint32_t threadId);
  bool Add(std::uint32_t threadId);
  void Remove(SThreadStateInfo* record);
  bool AddHold(std::uint32_t threadId, std::uint32_t hold, bool entered);

  // Every thread that holds something or tries to: its record comes before its count, so that a
  // lack of memory cannot leave a count that nobody gives back.
  std::vector<SThreadStateInfo> threads_;
};

/// Holds a lock for reading, or for writing, for the time of a scope; waits without limit. Throws
/// std::bad_alloc where the lock has no room for one more hold.
template <class Lock>
class QV_SCOPED_CAPABILITY ReadHold {
 public:
  explicit ReadHold(Lock& lock) QV_ACQUIRE_SHARED(lock) QV_NOT_ANALYZED : lock_(lock) {
    if (!lock_.AcquireReaderLock(INFINITE)) throw std::bad_alloc();
  }
  ~ReadHold() QV_RELEASE() QV_NOT_ANALYZED { lock_.ReleaseReaderLock(); }
  ReadHold(const ReadHold&) = delete;
  ReadHold& operator=(const ReadHold&) = delete;

 private:
  Lock& lock_;
};

template <class Lock>
class QV_SCOPED_CAPABILITY WriteHold {
 public:
  explicit WriteHold(Lock& lock) QV_ACQUIRE(lock) QV_NOT_ANALYZED : lock_(lock) {
    if (!lock_.AcquireWriterLock(INFINITE)) throw std::bad_alloc();
  }
  ~WriteHold() QV_RELEASE() QV_NOT_ANALYZED { lock_.ReleaseWriterLock(); }
  WriteHold(const WriteHold&) = delete;
  WriteHold& operator=(const WriteHold&) = delete;

 private:
  Lock& lock_;
};
