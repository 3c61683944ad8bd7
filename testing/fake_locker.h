// A lock that refuses, which a mutex of the test's own process cannot be made to do.
#ifndef KUPDATE_TESTING_FAKE_LOCKER_H_
#define KUPDATE_TESTING_FAKE_LOCKER_H_

#include "util/locker.h"

class RefusingLocker final : public TLocker {
 public:
  bool Lock() override { return false; }
  void Unlock() override {}
};

#endif  // KUPDATE_TESTING_FAKE_LOCKER_H_
