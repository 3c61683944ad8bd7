// How the library, the executor and their users' files fare with every fault of what they rely on.
//
//   service_proof faults [few | third | PART]
//                                       a row for each fault; for few; for each third; for those
//                                       named with PART
//   service_proof waits STARTS          hosts that wait right behind so many starts
//   service_proof offline DAYS APPS     weeks without a network: the part without ...
//   service_proof online DAYS APPS      ... and the part after that, with its row
//
// Ends with 0 when everything ended as it must.
#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <iterator>
#include <string_view>
#include <vector>

#include "proof/service_faults.h"
#include "proof/service_offline.h"
#include "proof/service_waits.h"
#include "util/process.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

// What the unit tests do not meet.
constexpr std::string_view kFew[] = {
    "another program has all 60 jobs (ping)",
    "the service is gone when the executor comes (check)",
    "Complete fails (ping)",
    "Complete and Cancel fail (ping)",
    "the job of a report that was not received has vanished (ping)",
    "another executor ends the job at the same time (ping)",
    "the executor crashes (check)",
    "the service is restarted before the executor could be started (check)",
    "the clock was set back a year (ping)",
    "404 (ping)",
    "503 for ten days, then good (ping)",
    "broken compressed data (check)",
};

bool IsWanted(std::string_view label, std::string_view which) {
  if (which != "few") return label.find(which) != label.npos;
  return std::find(std::begin(kFew), std::end(kFew), label) != std::end(kFew);
}

bool RunFaultTable(std::string_view which) {
  std::vector<proof::Fault> chosen;
  int number = 0;
  for (const auto& list : {proof::ServiceFaults(), proof::NetworkFaults()}) {
    for (const proof::Fault& fault : list) {
      const bool isWanted = which == "third" ? number % 3 == 0 : IsWanted(fault.label, which);
      if (isWanted) chosen.push_back(fault);
      ++number;
    }
  }
  const int failed = proof::RunFaults(chosen);
  std::fprintf(stderr, "  %zu faults, %d did not end well\n", chosen.size(), failed);
  // A name that was changed in one place only must not go unnoticed.
  return failed == 0 && (which == "few" ? chosen.size() == std::size(kFew) : !chosen.empty());
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  // As the executor that crashes.
  if (HostProgramName() == L"kupdate-exec.exe") {
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  const std::wstring_view what = argc > 1 ? argv[1] : L"";
  if (what == L"faults") return RunFaultTable(argc > 2 ? NarrowUtf8(argv[2]) : "") ? 0 : 1;
  if (what == L"waits" && argc == 3) {
    return proof::WaitBehindStarts(static_cast<int>(std::wcstol(argv[2], nullptr, 10))) ? 0 : 1;
  }
  if (argc != 4) return 2;
  const proof::Weeks weeks{static_cast<int>(std::wcstol(argv[2], nullptr, 10)),
                           static_cast<int>(std::wcstol(argv[3], nullptr, 10))};
  const bool held = what == L"offline" ? proof::GoOffline(weeks) : proof::ComeOnline(weeks);
  return held ? 0 : 1;
}
