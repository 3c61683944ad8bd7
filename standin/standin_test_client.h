// A client of the service, for the tests: activates it as any other does, in a process of its own.
#ifndef KUPDATE_STANDIN_STANDIN_TEST_CLIENT_H_
#define KUPDATE_STANDIN_STANDIN_TEST_CLIENT_H_

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include "testing/data_home.h"
#include "testing/transfer_service.h"
#include "util/win/windows_lean.h"
// After the system's header, which they need.
#include <bits.h>
#include <bitsmsg.h>
#include <comdef.h>

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyError, __uuidof(IBackgroundCopyError));

namespace standin_test {

using namespace testing_dll;
namespace fs = std::filesystem;

// The toolchain's constants of the service are unsigned.
constexpr HRESULT Code(unsigned long code) { return static_cast<HRESULT>(code); }

/// The head of an answer that the service is content with.
std::string Ok(int size);

struct Client {
  IBackgroundCopyJobPtr job;
  IBackgroundCopyJob2Ptr job2;
  GUID id = {};

  /// As the journal writes it.
  std::string Id() const;
  BG_JOB_STATE State() const;
  bool Reaches(BG_JOB_STATE state) const;
  /// S_OK when there is none.
  HRESULT Error() const;
};

class Standin : public testing::Test {
 protected:
  Standin();
  /// Cancels what the test has left.
  ~Standin() override;

  HRESULT CreateJob(Client* client);
  Client Create();
  /// A resumed job that gets `url` (a path on the web server, or a whole address) as `name`.
  Client Start(const std::string& url, const std::wstring& name);
  /// The same of a job that is there.
  void Start(const Client& client, const std::string& url, const std::wstring& name);
  /// What a new client gets for a job's id.
  HRESULT Find(const Client& client);
  std::vector<fs::path> TempFiles();

  const TransferService service_;
  const fs::path target_ = service_.File("target \u0444");
  IBackgroundCopyManagerPtr manager_;
  std::vector<Client> clients_;
};

}  // namespace standin_test

#endif  // KUPDATE_STANDIN_STANDIN_TEST_CLIENT_H_
