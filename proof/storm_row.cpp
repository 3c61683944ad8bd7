#include "proof/storm_row.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "util/win/windows_lean.h"

namespace storm {

namespace {

constexpr ULONGLONG kPatienceMilliseconds = 120000;

std::mutex guard;
std::string lastPlace = "at the start";
std::atomic<ULONGLONG> lastProgress{0};

}  // namespace

bool Row(const std::string& promise, const std::string& tried, const std::string& found,
         bool held) {
  std::printf("| %s | %s | %s | %s |\n", promise.c_str(), tried.c_str(), found.c_str(),
              held ? "yes" : "NO");
  std::fflush(stdout);
  return held;
}

void Complaints::Add(const std::string& text) {
  if (count_++ == 0) first_ = text;
  std::fprintf(stderr, "  FAULT: %s\n", text.c_str());
}

std::string Complaints::Text() const {
  return count_ == 0 ? "0 faults" : std::to_string(count_) + " faults, first: " + first_;
}

void Progress(const std::string& text) {
  lastProgress = ::GetTickCount64();
  if (!text.empty()) std::fprintf(stderr, "  %s\n", text.c_str());
}

void At(const std::string& place) {
  lastProgress = ::GetTickCount64();
  const std::lock_guard lock(guard);
  lastPlace = place;
}

void StartWatchdog() {
  Progress("");
  std::thread([] {
    while (::GetTickCount64() - lastProgress < kPatienceMilliseconds) ::Sleep(1000);
    const std::lock_guard lock(guard);
    std::fprintf(stderr, "  FAULT: nothing has moved for two minutes: %s\n", lastPlace.c_str());
    std::fflush(stderr);
    ::TerminateProcess(::GetCurrentProcess(), 3);
  }).detach();
}

}  // namespace storm
