// The lock interface of the stores.
#ifndef KUPDATE_UTIL_LOCKER_H_
#define KUPDATE_UTIL_LOCKER_H_

/// Guards a file that several processes read and rewrite. Used by one thread at a time.
class TLocker {
 public:
  virtual ~TLocker() = default;
  /// Waits for the lock. Returns true when the caller now owns it; false was logged.
  virtual bool Lock() = 0;
  /// Gives the lock back; nothing when it is not held.
  virtual void Unlock() = 0;
};

/// Holds a lock over a scope. A store without a locker (null) works without locking.
class LockScope {
 public:
  explicit LockScope(TLocker* locker) : locker_(locker), held_(!locker || locker->Lock()) {}
  ~LockScope() { Release(); }
  LockScope(const LockScope&) = delete;
  LockScope& operator=(const LockScope&) = delete;

  explicit operator bool() const { return held_; }
  /// Gives the lock back before the scope ends.
  void Release() {
    if (held_ && locker_) locker_->Unlock();
    held_ = false;
  }

 private:
  TLocker* locker_;
  bool held_;
};

#endif  // KUPDATE_UTIL_LOCKER_H_
