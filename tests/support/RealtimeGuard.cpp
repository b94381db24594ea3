#include "support/RealtimeGuard.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "foundation/Realtime.h"

// The C library's own names for what is needed before anything can be looked up: dlsym() may itself
// allocate.
extern "C" {
ssize_t __write(int fd, const void* bytes, std::size_t count);
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace velorin::test {
namespace {

std::atomic<bool> sawAllocation{false};

[[noreturn]] void refuse(const char* call) noexcept {
  char line[128];
  std::size_t length = 0;
  const auto append = [&](const char* text) {
    while (*text != '\0' && length < sizeof(line)) line[length++] = *text++;
  };
  append("realtime: ");
  append(call);
  append(" on the render thread\n");
  (void)__write(STDERR_FILENO, line, length);
  std::abort();
}

void check(const char* call) noexcept {
  if (realtime::active()) refuse(call);
}

/// The next definition of a function, looked up once. Constant-initialised, so that it works
/// before any constructor ran.
template <class Function>
class Next {
 public:
  explicit constexpr Next(const char* name) noexcept : _name(name) {}

  Function* get() noexcept {
    void* found = _found.load(std::memory_order_acquire);
    if (found == nullptr) {
      found = ::dlsym(RTLD_NEXT, _name);
      if (found == nullptr) std::abort();
      _found.store(found, std::memory_order_release);
    }
    return reinterpret_cast<Function*>(found);
  }

 private:
  const char* _name;
  std::atomic<void*> _found{nullptr};
};

}  // namespace

bool realtimeGuardIsActive() noexcept {
  return sawAllocation.load();
}

}  // namespace velorin::test

using velorin::test::check;
using velorin::test::Next;
using velorin::test::sawAllocation;

// A guarded function with fixed parameters: checks, then calls the next definition.
#define GUARD(result, name, parameters, arguments)        \
  extern "C" result name parameters {                     \
    static constinit Next<result parameters> next(#name); \
    check(#name);                                         \
    return next.get() arguments;                          \
  }

// --- Memory. operator new and delete come down to these. ---

extern "C" void* malloc(std::size_t size) {
  check("malloc");
  sawAllocation.store(true, std::memory_order_relaxed);
  return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
  check("calloc");
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, std::size_t size) {
  check("realloc");
  return __libc_realloc(block, size);
}
extern "C" void free(void* block) {
  // free(nullptr) does nothing and is what an empty container's destructor may call.
  if (block == nullptr) return;
  check("free");
  __libc_free(block);
}
extern "C" void* memalign(std::size_t alignment, std::size_t size) {
  check("memalign");
  return __libc_memalign(alignment, size);
}
extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) {
  check("aligned_alloc");
  return __libc_memalign(alignment, size);
}
extern "C" int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  check("posix_memalign");
  void* made = __libc_memalign(alignment, size);
  if (made == nullptr) return ENOMEM;
  *block = made;
  return 0;
}
GUARD(void*, mmap,
      (void* address, std::size_t length, int protection, int flags, int fd, off_t offset),
      (address, length, protection, flags, fd, offset))
GUARD(int, munmap, (void* address, std::size_t length), (address, length))

// --- Locks and conditions ---

GUARD(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
GUARD(int, pthread_mutex_timedlock, (pthread_mutex_t * mutex, const timespec* until),
      (mutex, until))
GUARD(int, pthread_mutex_clocklock,
      (pthread_mutex_t * mutex, clockid_t clock, const timespec* until), (mutex, clock, until))
GUARD(int, pthread_rwlock_rdlock, (pthread_rwlock_t * lock), (lock))
GUARD(int, pthread_rwlock_wrlock, (pthread_rwlock_t * lock), (lock))
GUARD(int, pthread_rwlock_timedrdlock, (pthread_rwlock_t * lock, const timespec* until),
      (lock, until))
GUARD(int, pthread_rwlock_timedwrlock, (pthread_rwlock_t * lock, const timespec* until),
      (lock, until))
GUARD(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
      (condition, mutex))
GUARD(int, pthread_cond_timedwait,
      (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until),
      (condition, mutex, until))
GUARD(int, pthread_cond_clockwait,
      (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until),
      (condition, mutex, clock, until))
GUARD(int, pthread_cond_signal, (pthread_cond_t * condition), (condition))
GUARD(int, pthread_cond_broadcast, (pthread_cond_t * condition), (condition))
GUARD(int, pthread_join, (pthread_t thread, void** result), (thread, result))
GUARD(int, pthread_create,
      (pthread_t * thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument),
      (thread, attributes, entry, argument))
GUARD(int, sem_wait, (sem_t * semaphore), (semaphore))
GUARD(int, sem_timedwait, (sem_t * semaphore, const timespec* until), (semaphore, until))

// --- Waiting ---

GUARD(int, nanosleep, (const timespec* time, timespec* left), (time, left))
GUARD(int, clock_nanosleep, (clockid_t clock, int flags, const timespec* time, timespec* left),
      (clock, flags, time, left))
GUARD(int, usleep, (useconds_t time), (time))
GUARD(unsigned, sleep, (unsigned seconds), (seconds))
GUARD(int, poll, (pollfd * descriptors, nfds_t count, int timeout), (descriptors, count, timeout))
GUARD(int, ppoll,
      (pollfd * descriptors, nfds_t count, const timespec* timeout, const sigset_t* mask),
      (descriptors, count, timeout, mask))
GUARD(int, select, (int count, fd_set* in, fd_set* out, fd_set* error, timeval* timeout),
      (count, in, out, error, timeout))
GUARD(int, epoll_wait, (int epoll, epoll_event* events, int count, int timeout),
      (epoll, events, count, timeout))

// --- Files and devices ---

GUARD(ssize_t, read, (int fd, void* bytes, std::size_t count), (fd, bytes, count))
GUARD(ssize_t, write, (int fd, const void* bytes, std::size_t count), (fd, bytes, count))
GUARD(ssize_t, pread, (int fd, void* bytes, std::size_t count, off_t offset),
      (fd, bytes, count, offset))
GUARD(ssize_t, pwrite, (int fd, const void* bytes, std::size_t count, off_t offset),
      (fd, bytes, count, offset))
GUARD(ssize_t, readv, (int fd, const iovec* pieces, int count), (fd, pieces, count))
GUARD(ssize_t, writev, (int fd, const iovec* pieces, int count), (fd, pieces, count))
GUARD(int, close, (int fd), (fd))
GUARD(int, fsync, (int fd), (fd))
GUARD(int, ftruncate, (int fd, off_t length), (fd, length))
GUARD(std::FILE*, fopen, (const char* path, const char* mode), (path, mode))
GUARD(int, fclose, (std::FILE * file), (file))
GUARD(int, fflush, (std::FILE * file), (file))
GUARD(std::size_t, fread, (void* bytes, std::size_t size, std::size_t count, std::FILE* file),
      (bytes, size, count, file))
GUARD(std::size_t, fwrite,
      (const void* bytes, std::size_t size, std::size_t count, std::FILE* file),
      (bytes, size, count, file))
GUARD(int, fputc, (int byte, std::FILE* file), (byte, file))
GUARD(int, putc, (int byte, std::FILE* file), (byte, file))
GUARD(int, putchar, (int byte), (byte))
GUARD(int, fputs, (const char* text, std::FILE* file), (text, file))
GUARD(int, puts, (const char* text), (text))
GUARD(int, vfprintf, (std::FILE * file, const char* format, va_list arguments),
      (file, format, arguments))

extern "C" int printf(const char* format, ...) {
  check("printf");
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(stdout, format, arguments);
  va_end(arguments);
  return written;
}
extern "C" int fprintf(std::FILE* file, const char* format, ...) {
  check("fprintf");
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(file, format, arguments);
  va_end(arguments);
  return written;
}

// Variable parameters: as many words as the kernel can take are passed on, as in the library.
extern "C" int open(const char* path, int flags, ...) {
  static constinit Next<int(const char*, int, ...)> next("open");
  check("open");
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return next.get()(path, flags, mode);
}
extern "C" int open64(const char* path, int flags, ...) {
  static constinit Next<int(const char*, int, ...)> next("open64");
  check("open64");
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return next.get()(path, flags, mode);
}
extern "C" int openat(int folder, const char* path, int flags, ...) {
  static constinit Next<int(int, const char*, int, ...)> next("openat");
  check("openat");
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return next.get()(folder, path, flags, mode);
}
extern "C" int ioctl(int fd, unsigned long request, ...) {
  static constinit Next<int(int, unsigned long, ...)> next("ioctl");
  check("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return next.get()(fd, request, argument);
}
/// What std::atomic::wait and notify come down to (futex), among others.
extern "C" long syscall(long number, ...) {
  static constinit Next<long(long, ...)> next("syscall");
  check("syscall");
  va_list arguments;
  va_start(arguments, number);
  long words[6];
  for (long& word : words) word = va_arg(arguments, long);
  va_end(arguments);
  return next.get()(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
