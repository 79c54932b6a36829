// Locks that the compiler checks: clang refuses to touch a guarded member without its lock
// (-Wthread-safety). Elsewhere the annotations are empty, and these are the standard library's
// locks.
//
// A member is annotated with TULO_GUARDED_BY(mutex_), what it points to with
// TULO_PT_GUARDED_BY(mutex_), a function that wants the lock held with TULO_REQUIRES(mutex_), one
// that takes it by itself with TULO_EXCLUDES(mutex_). What a lambda does is checked by itself: wait
// in a loop instead of with a predicate, or annotate the lambda.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#if defined(__clang__)
#define TULO_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define TULO_THREAD_ANNOTATION(attribute)
#endif

#define TULO_CAPABILITY(name) TULO_THREAD_ANNOTATION(capability(name))
#define TULO_SCOPED_CAPABILITY TULO_THREAD_ANNOTATION(scoped_lockable)
#define TULO_GUARDED_BY(mutex) TULO_THREAD_ANNOTATION(guarded_by(mutex))
#define TULO_PT_GUARDED_BY(mutex) TULO_THREAD_ANNOTATION(pt_guarded_by(mutex))
#define TULO_REQUIRES(...) TULO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TULO_REQUIRES_SHARED(...) TULO_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define TULO_EXCLUDES(...) TULO_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define TULO_ACQUIRE(...) TULO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TULO_ACQUIRE_SHARED(...) TULO_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TULO_RELEASE(...) TULO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TULO_RELEASE_SHARED(...) TULO_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define TULO_TRY_ACQUIRE(...) TULO_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define TULO_ASSERT_HELD(...) TULO_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
#define TULO_RETURN_CAPABILITY(mutex) TULO_THREAD_ANNOTATION(lock_returned(mutex))
// With a comment that says why the compiler cannot follow.
#define TULO_NO_THREAD_SAFETY_ANALYSIS TULO_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace tulo {

class TULO_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() TULO_ACQUIRE() { mutex_.lock(); }
  void unlock() TULO_RELEASE() { mutex_.unlock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a mutex to the end of the scope, or in between not.
class TULO_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TULO_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() TULO_RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() TULO_RELEASE() { lock_.unlock(); }
  void lock() TULO_ACQUIRE() { lock_.lock(); }

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

// Waiting lets go of the lock meanwhile. May return without anybody having notified.
class Condition {
 public:
  void wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  // False when the time was over.
  template <typename Rep, typename Period>
  bool waitFor(MutexLock& lock, const std::chrono::duration<Rep, Period>& time) {
    return condition_.wait_for(lock.lock_, time) == std::cv_status::no_timeout;
  }
  template <typename Clock, typename Duration>
  bool waitUntil(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& end) {
    return condition_.wait_until(lock.lock_, end) == std::cv_status::no_timeout;
  }
  void notifyOne() { condition_.notify_one(); }
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

class TULO_CAPABILITY("mutex") SharedMutex {
 public:
  SharedMutex() = default;
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;

  void lock() TULO_ACQUIRE() { mutex_.lock(); }
  void unlock() TULO_RELEASE() { mutex_.unlock(); }
  void lockShared() TULO_ACQUIRE_SHARED() { mutex_.lock_shared(); }
  void unlockShared() TULO_RELEASE_SHARED() { mutex_.unlock_shared(); }

 private:
  std::shared_mutex mutex_;
};

class TULO_SCOPED_CAPABILITY ExclusiveLock {
 public:
  explicit ExclusiveLock(SharedMutex& mutex) TULO_ACQUIRE(mutex) : mutex_(mutex) { mutex.lock(); }
  ~ExclusiveLock() TULO_RELEASE() { mutex_.unlock(); }
  ExclusiveLock(const ExclusiveLock&) = delete;
  ExclusiveLock& operator=(const ExclusiveLock&) = delete;

 private:
  SharedMutex& mutex_;
};

class TULO_SCOPED_CAPABILITY SharedLock {
 public:
  explicit SharedLock(SharedMutex& mutex) TULO_ACQUIRE_SHARED(mutex) : mutex_(mutex) {
    mutex.lockShared();
  }
  ~SharedLock() TULO_RELEASE() { mutex_.unlockShared(); }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

 private:
  SharedMutex& mutex_;
};

}  // namespace tulo
