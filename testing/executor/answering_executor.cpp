// A kupdate-exec.exe that installs nothing: it writes down how it was called, beside itself, and
// gives the answer that its caller waits for.
//
//   --appid ID --silent-update-check            the update counts as installed, exit code 0
//   --appid ID ... --job JOB                    the job is completed; its file is where it belongs
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "controller/command_line.h"
#include "transfer/bits_completion.h"
#include "transfer/com_apartment.h"
#include "update/upd_info.h"
#include "util/append_file.h"
#include "util/event.h"
#include "util/files.h"
#include "util/process.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace {

constexpr int kAnswered = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 3;

/// The arguments by name. Callers do not quote the program, so a path with blanks is several
/// arguments: nothing is known by its place.
class Arguments {
 public:
  Arguments(int argc, wchar_t** argv) : list_(argv, argv + argc) {}

  bool Has(std::wstring_view name) const {
    return std::find(list_.begin(), list_.end(), name) != list_.end();
  }
  /// The argument behind `name`; empty when there is none.
  std::wstring Of(std::wstring_view name) const {
    const auto found = std::find(list_.begin(), list_.end(), name);
    return found == list_.end() || found + 1 == list_.end() ? std::wstring() : found[1];
  }

 private:
  std::vector<std::wstring> list_;
};

void WriteDownTheCall() {
  const std::wstring file = GetFolderOfPath(ModulePath()) + L"kupdate-exec-calls.txt";
  AppendToFile(file, NarrowUtf8(::GetCommandLineW()) + "\n");
}

void CompleteJob(const std::wstring& job) {
  const ComApartment apartment;
  TBitsTransferCompletion::CreateWorker(NarrowUtf8(job))->Finish();
}

int Answer(const Arguments& arguments) {
  const std::wstring appId = arguments.Of(L"--appid");
  const std::wstring job = arguments.Of(L"--job");
  const bool isInstall = arguments.Has(L"--silent-update-check");
  if (appId.empty() || (job.empty() && !isInstall)) return kUsage;
  if (!job.empty()) CompleteJob(job);
  if (isInstall) TUpdInfo(NarrowUtf8(appId)).WriteNumber("DistroExitCode", 0);
  return JustUtil::Signal(JustUtil::CreateEventW(ResultEventName(appId))) ? kAnswered : kFailed;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  try {
    WriteDownTheCall();
    return Answer(Arguments(argc, argv));
  } catch (...) {
    std::fputs("kupdate-exec: the transfer service refused\n", stderr);
    return kFailed;
  }
}
