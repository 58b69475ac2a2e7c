// A mutex that clang's thread-safety analysis follows, and the words that tell it which lock guards
// what. The standard library's own mutex carries no such words. Other compilers see plain types.
#pragma once

#include <mutex>

#if defined(__clang__)
#define QV_THREAD_ATTRIBUTE(word) __attribute__((word))
#else
#define QV_THREAD_ATTRIBUTE(word)
#endif

/// A type that can be held, and one that holds it for the time of a scope.
#define QV_CAPABILITY(name) QV_THREAD_ATTRIBUTE(capability(name))
#define QV_SCOPED_CAPABILITY QV_THREAD_ATTRIBUTE(scoped_lockable)
/// A member that may be used only under the lock.
#define QV_GUARDED_BY(lock) QV_THREAD_ATTRIBUTE(guarded_by(lock))
/// A function that is called under the lock.
#define QV_REQUIRES(...) QV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// A function that takes or gives back a lock.
#define QV_ACQUIRE(...) QV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QV_ACQUIRE_SHARED(...) QV_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define QV_TRY_ACQUIRE(...) QV_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define QV_RELEASE(...) QV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
/// A function whose locking the analysis cannot follow.
#define QV_NOT_ANALYZED QV_THREAD_ATTRIBUTE(no_thread_safety_analysis)

/// A std::mutex. With std::condition_variable_any it is waited on as it is: `while (!condition)
/// changed.wait(mutex);`.
class QV_CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() QV_ACQUIRE() { mutex_.lock(); }
  void unlock() QV_RELEASE() { mutex_.unlock(); }
  bool try_lock() QV_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

/// Holds a mutex for the time of a scope.
class QV_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) QV_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() QV_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};
