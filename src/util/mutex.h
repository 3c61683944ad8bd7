// Locks: one shared by all processes of the logon session, one for the threads of this process.
#ifndef KUPDATE_UTIL_MUTEX_H_
#define KUPDATE_UTIL_MUTEX_H_

#include <string>

#include "util/handle.h"
#include "util/locker.h"

/// Guards one state file. Lock and unlock on the same thread; does not nest.
class Mutex final : public TLocker {
 public:
  /// Creates or opens the mutex.
  /// @param name  kernel object name, no namespace prefix. If it cannot be created that is logged
  ///              and every later Lock() returns false. One made by a process of another integrity
  ///              level is opened with the right to wait only.
  explicit Mutex(std::wstring name);
  /// Releases the mutex when it is still held.
  ~Mutex() override;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  /// Waits without limit. An abandoned mutex (its owner died) counts as acquired; the file it
  /// guards is whole all the same, since files are replaced in one step wherever the system allows
  /// it.
  bool Lock() override;
  void Unlock() override;

 private:
  UniqueHandle handle_;
  bool locked_ = false;
  std::wstring name_;
};

/// Recursive. Constructing one allocates a little memory and waits for nothing.
class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void lock();
  void unlock();

 private:
  void* impl_;  // owned
};

/// Holds a CriticalSection over a scope.
class CriticalScope {
 public:
  explicit CriticalScope(CriticalSection& section) : section_(section) { section_.lock(); }
  ~CriticalScope() { section_.unlock(); }
  CriticalScope(const CriticalScope&) = delete;
  CriticalScope& operator=(const CriticalScope&) = delete;

 private:
  CriticalSection& section_;
};

#endif  // KUPDATE_UTIL_MUTEX_H_
