// A lock for the threads of this process.
#ifndef KUPDATE_UTIL_CRITICAL_SECTION_H_
#define KUPDATE_UTIL_CRITICAL_SECTION_H_

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

#endif  // KUPDATE_UTIL_CRITICAL_SECTION_H_
