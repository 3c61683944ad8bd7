// The user and new GUIDs on other systems, for tests: fixed answers, the environment and random
// numbers.
#include "util/system.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <random>

std::uint32_t LastErrorCode() { return static_cast<std::uint32_t>(errno); }
void SetLastErrorCode(std::uint32_t code) { errno = static_cast<int>(code); }

std::wstring LogonName() { return L"user"; }

std::string NewGuidText() {
  std::random_device random;
  const unsigned a = random();
  const unsigned b = random();
  const unsigned c = random();
  const unsigned d = random();
  char text[40];
  static_cast<void>(std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%04X-%04X%08X}", a,
                                  b & 0xFFFF, b >> 16, c & 0xFFFF, c >> 16, d));
  return text;
}

bool IsVistaOrLater() { return true; }

// NOLINTNEXTLINE(concurrency-mt-unsafe): the environment stays while threads run
bool JustUtil::CheckPMIE8() { return std::getenv("KUPDATE_PROTECTED_MODE") != nullptr; }
