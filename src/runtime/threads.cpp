// The few thread functions that the compiler's runtime calls: for exceptions, and for variables of
// functions. Its own version of them, a whole thread library, is a tenth of the library's size.
#include "util/win/windows_lean.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

// The runtime knows these by name, and the types by their size.
extern "C" {
using Mutex = std::intptr_t;
using Condition = std::intptr_t;
using Key = unsigned;
int pthread_once(long* once, void (*initialise)());
int pthread_mutex_init(Mutex* mutex, const unsigned* attributes);
int pthread_mutex_destroy(Mutex* mutex);
int pthread_mutex_lock(Mutex* mutex);
int pthread_mutex_unlock(Mutex* mutex);
int pthread_cond_wait(Condition* condition, Mutex* mutex);
int pthread_cond_broadcast(Condition* condition);
int pthread_key_create(Key* key, void (*destroy)(void*));
void* pthread_getspecific(Key key);
int pthread_setspecific(Key key, const void* value);
}

namespace {

// One lock serves as every mutex: the runtime holds one at a time, for a few instructions.
SRWLOCK gLock = SRWLOCK_INIT;
SRWLOCK gOnceLock = SRWLOCK_INIT;
CONDITION_VARIABLE gChange = CONDITION_VARIABLE_INIT;
void (*gDestroy)(void*) = nullptr;

// Called when a thread ends. The library stays loaded from its first call on, so this code is
// there.
void WINAPI DestroyValue(void* value) {
  if (value) gDestroy(value);
}

}  // namespace

int pthread_once(long* once, void (*initialise)()) {
  const std::atomic_ref<long> isDone(*once);
  if (isDone.load(std::memory_order_acquire) != 0) return 0;
  ::AcquireSRWLockExclusive(&gOnceLock);
  if (isDone.load(std::memory_order_relaxed) == 0) {
    initialise();
    isDone.store(1, std::memory_order_release);
  }
  ::ReleaseSRWLockExclusive(&gOnceLock);
  return 0;
}

int pthread_mutex_init(Mutex*, const unsigned*) { return 0; }
int pthread_mutex_destroy(Mutex*) { return 0; }

int pthread_mutex_lock(Mutex*) {
  ::AcquireSRWLockExclusive(&gLock);
  return 0;
}

int pthread_mutex_unlock(Mutex*) {
  ::ReleaseSRWLockExclusive(&gLock);
  return 0;
}

int pthread_cond_wait(Condition*, Mutex*) {
  return ::SleepConditionVariableSRW(&gChange, &gLock, INFINITE, 0) ? 0 : EINVAL;
}

int pthread_cond_broadcast(Condition*) {
  ::WakeAllConditionVariable(&gChange);
  return 0;
}

// The runtime makes one key. Fiber storage, unlike thread storage, reports the end of a thread.
int pthread_key_create(Key* key, void (*destroy)(void*)) {
  if (gDestroy) return EAGAIN;
  const DWORD index = ::FlsAlloc(&DestroyValue);
  if (index == FLS_OUT_OF_INDEXES) return EAGAIN;
  gDestroy = destroy;
  *key = index;
  return 0;
}

void* pthread_getspecific(Key key) { return ::FlsGetValue(key); }

int pthread_setspecific(Key key, const void* value) {
  return ::FlsSetValue(key, const_cast<void*>(value)) ? 0 : EINVAL;
}
