// Mutexes the compiler can check: std::mutex with clang's thread-safety attributes.
// A field says GUARDED_BY(_mutex); the clang preset turns a forgotten lock into an error.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define VELORIN_TSA(x) __attribute__((x))
#else
#define VELORIN_TSA(x)
#endif

#define CAPABILITY(x) VELORIN_TSA(capability(x))
#define SCOPED_CAPABILITY VELORIN_TSA(scoped_lockable)
#define GUARDED_BY(x) VELORIN_TSA(guarded_by(x))
#define PT_GUARDED_BY(x) VELORIN_TSA(pt_guarded_by(x))
#define REQUIRES(...) VELORIN_TSA(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) VELORIN_TSA(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VELORIN_TSA(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VELORIN_TSA(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) VELORIN_TSA(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS VELORIN_TSA(no_thread_safety_analysis)

namespace velorin {

/// std::mutex, annotated. Any thread except the render thread.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return _mutex.try_lock(); }

 private:
  friend class ConditionVariable;
  std::mutex _mutex;
};

/// std::recursive_mutex, annotated.
class CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return _mutex.try_lock(); }

 private:
  std::recursive_mutex _mutex;
};

/// Holds a Mutex or RecursiveMutex for a scope.
template <class M>
class SCOPED_CAPABILITY BasicLock {
 public:
  explicit BasicLock(M& mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~BasicLock() RELEASE() { _mutex.unlock(); }
  BasicLock(const BasicLock&) = delete;
  BasicLock& operator=(const BasicLock&) = delete;

 private:
  M& _mutex;
};

class SCOPED_CAPABILITY MutexLock : public BasicLock<Mutex> {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : BasicLock(mutex) {}
  ~MutexLock() RELEASE() {}
};

class SCOPED_CAPABILITY RecursiveMutexLock : public BasicLock<RecursiveMutex> {
 public:
  explicit RecursiveMutexLock(RecursiveMutex& mutex) ACQUIRE(mutex) : BasicLock(mutex) {}
  ~RecursiveMutexLock() RELEASE() {}
};

/// A condition variable for Mutex. The caller holds the mutex around every wait.
class ConditionVariable {
 public:
  void notifyOne() noexcept { _condition.notify_one(); }
  void notifyAll() noexcept { _condition.notify_all(); }

  void wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex._mutex, std::adopt_lock);
    _condition.wait(lock);
    lock.release();
  }

  /// False when the deadline passed without a notification.
  template <class Clock, class Duration>
  bool waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
      REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(mutex._mutex, std::adopt_lock);
    const bool notified = _condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return notified;
  }

 private:
  std::condition_variable _condition;
};

}  // namespace velorin
