// A client of the service, for the tests: activates it as any other does, in a process of its own.
#ifndef KUPDATE_STANDIN_TEST_CLIENT_H_
#define KUPDATE_STANDIN_TEST_CLIENT_H_

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include "util/win/windows_lean.h"
// After the system's header, which they need.
#include <bits.h>
#include <comdef.h>

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyError, __uuidof(IBackgroundCopyError));
_COM_SMARTPTR_TYPEDEF(IEnumBackgroundCopyJobs, __uuidof(IEnumBackgroundCopyJobs));

namespace standin_test {

namespace fs = std::filesystem;

// The toolchain's constants of the service are unsigned.
constexpr HRESULT Code(unsigned long code) { return static_cast<HRESULT>(code); }

/// Of the environment; empty when it is not set.
std::wstring Setting(const wchar_t* name);
std::string ReadAll(const fs::path& path);
void WriteAll(const fs::path& path, const std::string& text);
std::string IdText(const GUID& id);
/// Of the running test program.
std::wstring OwnPath();
/// Looks every 20 ms, at most `rounds` times, whether it is `done`.
bool Eventually(const std::function<bool()>& done, int rounds = 1000);

struct Client {
  IBackgroundCopyJobPtr job;
  IBackgroundCopyJob2Ptr job2;
  GUID id = {};

  BG_JOB_STATE State() const;
  BG_JOB_PROGRESS Progress() const;
  /// S_OK when there is no error.
  HRESULT ErrorCode(BG_ERROR_CONTEXT* context) const;
  bool Reaches(BG_JOB_STATE state) const;
};

class Standin : public testing::Test {
 protected:
  Standin();
  /// Cancels what the test has left.
  ~Standin() override;

  void Control(const std::string& text) { WriteAll(folder_ / "control.txt", text); }
  /// The journal since the test began.
  std::string Journal() { return ReadAll(folder_ / "journal.jsonl").substr(journalStart_); }
  int CountInJournal(const std::string& text);
  bool Journals(const std::string& text, int times = 1) {
    return Eventually([&] { return CountInJournal(text) >= times; });
  }

  Client Create();
  /// A resumed job that gets `url` (a path on the web server, or a whole address) as `name`.
  Client Start(const std::wstring& url, const std::wstring& name);
  HRESULT Add(const Client& client, const std::wstring& url, const std::wstring& name);
  /// How many jobs EnumJobs lists.
  ULONG CountJobs(DWORD flags);
  std::vector<fs::path> TempFiles();

  const fs::path folder_ = Setting(L"KUPDATE_STANDIN_FOLDER");
  const fs::path www_ = Setting(L"KUPDATE_WWW");
  const std::wstring http_ = Setting(L"KUPDATE_HTTP");
  const fs::path target_ = folder_ / L"target \u0444";
  std::size_t journalStart_ = 0;
  IBackgroundCopyManagerPtr manager_;
  std::vector<Client> clients_;
};

}  // namespace standin_test

#endif  // KUPDATE_STANDIN_TEST_CLIENT_H_
