// How the library, the executor and their users' files fare with every fault of what they rely on.
//
//   service_proof faults [few]          a row for each fault
//   service_proof offline DAYS APPS     weeks without a network: the part without ...
//   service_proof online DAYS APPS      ... and the part after that, with its row
//
// Ends with 0 when everything ended as it must.
#include <cstdio>
#include <cwchar>
#include <string_view>

#include "proof/service_faults.h"
#include "proof/service_offline.h"
#include "util/process.h"
#include "util/win/windows_lean.h"

namespace {

// What the unit tests do not meet.
constexpr std::string_view kFew[] = {
    "another program has all 60 jobs (ping)",
    "the executor crashes (check)",
    "the service is restarted before the executor could be started (check)",
    "the clock was set back a year (ping)",
    "503 for ten days, then good (ping)",
    "broken compressed data (check)",
};

std::vector<proof::Fault> Faults(bool few) {
  std::vector<proof::Fault> chosen;
  for (const auto& list : {proof::ServiceFaults(), proof::NetworkFaults()}) {
    for (const proof::Fault& fault : list) {
      bool isWanted = !few;
      for (const std::string_view label : kFew) isWanted = isWanted || label == fault.label;
      if (isWanted) chosen.push_back(fault);
    }
  }
  return chosen;
}

bool RunFaultTable(bool few) {
  const std::vector<proof::Fault> faults = Faults(few);
  const int failed = proof::RunFaults(faults);
  std::fprintf(stderr, "  %zu faults, %d did not end well\n", faults.size(), failed);
  return failed == 0 && faults.size() >= std::size(kFew);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  // As the executor that crashes.
  if (HostProgramName() == L"kupdate-exec.exe") {
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  const std::wstring_view what = argc > 1 ? argv[1] : L"";
  if (what == L"faults") return RunFaultTable(argc > 2) ? 0 : 1;
  if (argc != 4) return 2;
  const proof::Weeks weeks{static_cast<int>(std::wcstol(argv[2], nullptr, 10)),
                           static_cast<int>(std::wcstol(argv[3], nullptr, 10))};
  const bool held = what == L"offline" ? proof::GoOffline(weeks) : proof::ComeOnline(weeks);
  return held ? 0 : 1;
}
