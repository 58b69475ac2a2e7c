#include "util/reader_writer_lock.h"

#include <algorithm>
#include <new>
#include <thread>

#include "platform/system_time.h"
#include "platform/thread.h"

namespace {

// A wait with a limit is cut into slices, as the event's own budget wraps after some seconds. A
// wait without one stays whole: the event is then looked at half as often.
constexpr unsigned int kSliceMs = 1000;
// A wait that fails must not become a loop without pause.
constexpr unsigned int kPauseWithoutEventMs = 2;

// How often a thread gives way before it waits by an event. Most holds last for a few instructions,
// and making an event and looking at it again take milliseconds.
constexpr int kTimesToGiveWay = 256;

constexpr std::uint32_t kReadMask = 0xFFFF;
constexpr std::uint32_t kOneRead = 1;
constexpr std::uint32_t kOneWrite = 0x10000;

class SectionHold {
 public:
  explicit SectionHold(CReaderWriterLockNonReentrance& lock) : lock_(lock) { lock_.EnterCS(); }
  ~SectionHold() { lock_.LeaveCS(); }
  SectionHold(const SectionHold&) = delete;
  SectionHold& operator=(const SectionHold&) = delete;

 private:
  CReaderWriterLockNonReentrance& lock_;
};

}  // namespace

class CReaderWriterLockNonReentrance::Deadline {
 public:
  explicit Deadline(unsigned int timeoutMs) : start_(GetTickCount()), timeoutMs_(timeoutMs) {}

  unsigned int RemainingMs() const {
    if (timeoutMs_ >= INFINITE) return INFINITE;
    const unsigned int elapsed = GetTickCount() - start_;
    return elapsed < timeoutMs_ ? timeoutMs_ - elapsed : 0;
  }

 private:
  unsigned int start_;
  unsigned int timeoutMs_;
};

CReaderWriterLockNonReentrance::CReaderWriterLockNonReentrance() {
  InitializeCriticalSection(&section_);
}

CReaderWriterLockNonReentrance::~CReaderWriterLockNonReentrance() {
  CloseEvent(writerEvent_);
  CloseEvent(readerEvent_);
  DeleteCriticalSection(&section_);
}

void CReaderWriterLockNonReentrance::WaitOutsideSection(EventHandle event, unsigned int timeoutMs) {
  LeaveCS();
  const unsigned int sliceMs = timeoutMs == INFINITE ? INFINITE : std::min(timeoutMs, kSliceMs);
  if (event == nullptr || WaitForEvent(event, sliceMs) == WAIT_FAILED) {
    Sleep(std::min(timeoutMs, kPauseWithoutEventMs));
  }
  EnterCS();
}

void CReaderWriterLockNonReentrance::CountWriter() {
  // From now on new readers wait, so the event that let the last ones through is taken back.
  if (writers_++ == 0 && readerEvent_ != nullptr) ResetEvent(readerEvent_);
}

void CReaderWriterLockNonReentrance::UncountWriter() {
  if (--writers_ > 0) return;
  CloseEvent(writerEvent_);
  writerEvent_ = nullptr;
  if (readerEvent_ != nullptr) SetEvent(readerEvent_);
}

template <class Condition>
bool CReaderWriterLockNonReentrance::GiveWayUntil(Condition isMet) {
  for (int i = 0; i < kTimesToGiveWay && !isMet(); ++i) {
    LeaveCS();
    std::this_thread::yield();
    EnterCS();
  }
  return isMet();
}

bool CReaderWriterLockNonReentrance::EnterAsReader(unsigned int timeoutMs) {
  const auto isFree = [this] { return writers_ == 0; };
  if (timeoutMs == 0 ? isFree() : GiveWayUntil(isFree)) {
    ++readers_;
    return true;
  }
  return timeoutMs != 0 && WaitAsReader(timeoutMs);
}

bool CReaderWriterLockNonReentrance::WaitAsReader(unsigned int timeoutMs) {
  const Deadline deadline(timeoutMs);
  ++waitingReaders_;
  if (readerEvent_ == nullptr) readerEvent_ = CreateEvent(nullptr, 1, 0, nullptr);
  bool entered = false;
  while (!entered) {
    const unsigned int remaining = deadline.RemainingMs();
    if (remaining > 0) WaitOutsideSection(readerEvent_, remaining);
    if (writers_ == 0) {
      ++readers_;
      entered = true;
    } else if (remaining == 0) {
      break;
    } else if (readerEvent_ != nullptr) {
      // A waiter that woke before the writer came may have set the event again behind its back.
      ResetEvent(readerEvent_);
    }
  }
  if (--waitingReaders_ == 0) {
    CloseEvent(readerEvent_);
    readerEvent_ = nullptr;
  }
  return entered;
}

bool CReaderWriterLockNonReentrance::EnterAsWriter(unsigned int timeoutMs) {
  const auto isFree = [this] { return writers_ == 0 && readers_ == 0; };
  if (timeoutMs == 0 ? isFree() : GiveWayUntil(isFree)) {
    CountWriter();
    writing_ = true;
    return true;
  }
  return timeoutMs != 0 && WaitAsWriter(timeoutMs);
}

bool CReaderWriterLockNonReentrance::WaitAsWriter(unsigned int timeoutMs) {
  const Deadline deadline(timeoutMs);
  CountWriter();
  if (writerEvent_ == nullptr) writerEvent_ = CreateEvent(nullptr, 0, 0, nullptr);
  while (true) {
    const unsigned int remaining = deadline.RemainingMs();
    if (remaining > 0) WaitOutsideSection(writerEvent_, remaining);
    if (!writing_ && readers_ == 0) {
      writing_ = true;
      return true;
    }
    if (remaining == 0) {
      UncountWriter();
      return false;
    }
  }
}

void CReaderWriterLockNonReentrance::LeaveAsReader() {
  if (readers_ == 0) return;
  if (--readers_ == 0 && writerEvent_ != nullptr) SetEvent(writerEvent_);
}

void CReaderWriterLockNonReentrance::LeaveAsWriter() {
  if (!writing_) return;
  writing_ = false;
  UncountWriter();
  if (writerEvent_ != nullptr) SetEvent(writerEvent_);
}

void CReaderWriterLockNonReentrance::Downgrade() {
  if (!writing_) return;
  writing_ = false;
  ++readers_;
  UncountWriter();
}

void CReaderWriterLockNonReentrance::ConvertOnlyReader() {
  readers_ = 0;
  CountWriter();
  writing_ = true;
}

bool CReaderWriterLockNonReentrance::Upgrade(unsigned int timeoutMs) {
  if (readers_ == 0) return false;
  if (readers_ == 1) {
    ConvertOnlyReader();
    return true;
  }
  if (timeoutMs == 0) return false;
  --readers_;
  if (WaitAsWriter(timeoutMs)) return true;
  if (writers_ == 0) {
    ++readers_;
    return false;
  }
  WaitAsReader(INFINITE);
  if (readers_ != 1) return false;
  ConvertOnlyReader();
  return true;
}

bool CReaderWriterLockNonReentrance::AcquireReaderLock(unsigned int timeoutMs) {
  const SectionHold section(*this);
  return EnterAsReader(timeoutMs);
}

void CReaderWriterLockNonReentrance::ReleaseReaderLock() {
  const SectionHold section(*this);
  LeaveAsReader();
}

bool CReaderWriterLockNonReentrance::AcquireWriterLock(unsigned int timeoutMs) {
  const SectionHold section(*this);
  return EnterAsWriter(timeoutMs);
}

void CReaderWriterLockNonReentrance::ReleaseWriterLock() {
  const SectionHold section(*this);
  LeaveAsWriter();
}

void CReaderWriterLockNonReentrance::DowngradeFromWriterLock() {
  const SectionHold section(*this);
  Downgrade();
}

bool CReaderWriterLockNonReentrance::UpgradeToWriterLock(unsigned int timeoutMs) {
  const SectionHold section(*this);
  return timeoutMs != 0 && Upgrade(timeoutMs);
}

CReaderWriterLock::SThreadStateInfo* CReaderWriterLock::Find(std::uint32_t threadId) {
  for (SThreadStateInfo& record : threads_) {
    if (record.threadId == threadId) return &record;
  }
  return nullptr;
}

bool CReaderWriterLock::Add(std::uint32_t threadId) {
  try {
    threads_.push_back({threadId, 0});
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void CReaderWriterLock::Remove(SThreadStateInfo* record) {
  threads_.erase(threads_.begin() + (record - threads_.data()));
}

bool CReaderWriterLock::AddHold(std::uint32_t threadId, std::uint32_t hold, bool entered) {
  SThreadStateInfo* record = Find(threadId);  // others came and went during the wait
  if (entered) {
    record->state += hold;
  } else if (record->state == 0) {
    Remove(record);
  }
  return entered;
}

bool CReaderWriterLock::AcquireReaderLock(unsigned int timeoutMs) {
  const std::uint32_t self = GetCurrentThreadId();
  const SectionHold section(*this);
  if (SThreadStateInfo* record = Find(self)) {
    if ((record->state & kReadMask) == kReadMask) return false;
    ++record->state;
    return true;
  }
  return Add(self) && AddHold(self, kOneRead, EnterAsReader(timeoutMs));
}

void CReaderWriterLock::ReleaseReaderLock() {
  const std::uint32_t self = GetCurrentThreadId();
  const SectionHold section(*this);
  SThreadStateInfo* record = Find(self);
  if (record == nullptr || (record->state & kReadMask) == 0) return;
  if (--record->state != 0) return;
  Remove(record);
  LeaveAsReader();
}

bool CReaderWriterLock::AcquireWriterLock(unsigned int timeoutMs) {
  const std::uint32_t self = GetCurrentThreadId();
  const SectionHold section(*this);
  const SThreadStateInfo* record = Find(self);
  if (record == nullptr) {
    return Add(self) && AddHold(self, kOneWrite, EnterAsWriter(timeoutMs));
  }
  if (record->state >= kReadMask * kOneWrite) return false;
  return AddHold(self, kOneWrite, record->state >= kOneWrite || Upgrade(timeoutMs));
}

void CReaderWriterLock::ReleaseWriterLock() {
  const std::uint32_t self = GetCurrentThreadId();
  const SectionHold section(*this);
  SThreadStateInfo* record = Find(self);
  if (record == nullptr || record->state < kOneWrite) return;
  record->state -= kOneWrite;
  if (record->state >= kOneWrite) return;
  if (record->state > 0) {
    Downgrade();
  } else {
    Remove(record);
    LeaveAsWriter();
  }
}

void CReaderWriterLock::ReleaseAllLocks() {
  const std::uint32_t self = GetCurrentThreadId();
  const SectionHold section(*this);
  SThreadStateInfo* record = Find(self);
  if (record == nullptr) return;
  const bool writes = record->state >= kOneWrite;
  Remove(record);
  if (writes) {
    LeaveAsWriter();
  } else {
    LeaveAsReader();
  }
}

std::uint32_t CReaderWriterLock::GetCurrentThreadStatus() {
  const std::uint32_t self = GetCurrentThreadId();
  const SectionHold section(*this);
  const SThreadStateInfo* record = Find(self);
  return record == nullptr ? 0 : record->state;
}

void CReaderWriterLock::GetCurrentThreadStatus(std::uint32_t& readers, std::uint32_t& writers) {
  const std::uint32_t state = GetCurrentThreadStatus();
  readers = state & kReadMask;
  writers = state / kOneWrite;
}
