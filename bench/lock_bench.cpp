// The reader-writer locks beside the standard library's, without contention.
#include <benchmark/benchmark.h>

#include <shared_mutex>

#include "util/reader_writer_lock.h"

namespace {

void StdSharedMutexRead(benchmark::State& state) {
  std::shared_mutex mutex;
  for (auto _ : state) {
    mutex.lock_shared();
    mutex.unlock_shared();
  }
}
BENCHMARK(StdSharedMutexRead);

template <class Lock>
void ReadHoldOf(benchmark::State& state) {
  Lock lock;
  for (auto _ : state) {
    lock.AcquireReaderLock(INFINITE);
    lock.ReleaseReaderLock();
  }
}
BENCHMARK(ReadHoldOf<CReaderWriterLock>);
BENCHMARK(ReadHoldOf<CReaderWriterLockNonReentrance>);

}  // namespace
