// The users of the server, which runs as long as it has some.
#ifndef KUPDATE_STANDIN_LIFETIME_H_
#define KUPDATE_STANDIN_LIFETIME_H_

#include <atomic>

namespace standin {

/// Counts the users of the process: objects that clients hold, class locks, running transfers and
/// running notify programs.
class Lifetime {
 public:
  void Add() { ++users_; }
  void Remove() { --users_; }
  bool InUse() const { return users_ > 0; }

 private:
  std::atomic<int> users_ = 0;
};

/// Counts as one user as long as it lives.
class LifetimeHold {
 public:
  explicit LifetimeHold(Lifetime& lifetime) : lifetime_(lifetime) { lifetime_.Add(); }
  LifetimeHold(const LifetimeHold& other) : LifetimeHold(other.lifetime_) {}
  LifetimeHold& operator=(const LifetimeHold&) = delete;
  ~LifetimeHold() { lifetime_.Remove(); }

 private:
  Lifetime& lifetime_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_LIFETIME_H_
