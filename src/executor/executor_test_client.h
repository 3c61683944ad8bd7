// What the black-box tests of kupdate-exec.exe share: a host that makes jobs, and starting the
// program on them.
#ifndef KUPDATE_EXECUTOR_EXECUTOR_TEST_CLIENT_H_
#define KUPDATE_EXECUTOR_EXECUTOR_TEST_CLIENT_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "testing/data_home.h"
#include "testing/dll_client.h"

/// The program under test: a copy of the one that KUPDATE_EXEC names, since it may remove itself.
std::wstring ExecutorProgram();

/// Gives each test an empty data folder and a fresh copy of the program, in a path with blanks.
class ExecutorTest : public testing::Test {
 protected:
  ExecutorTest();
  /// Waits for the executors that the service has started: they work in the data folder.
  ~ExecutorTest() override;

  DataHome home_;

 private:
  testing_dll::TransferService service_;
};

/// Starts the program under test and returns its exit code.
unsigned RunExecutor(const std::wstring& arguments);

/// What the program under test writes to its standard output.
std::string OutputOf(const std::wstring& arguments);

/// Whether an application's result has been signalled since this was made.
class ResultEvent {
 public:
  explicit ResultEvent(const std::string& appId);
  ~ResultEvent();
  bool IsSignalled() const;

 private:
  void* event_;
};

/// A host whose jobs name an executor that is not there, so that a test can run it itself.
struct Host {
  explicit Host(std::string id);

  static void UseExecutor(const std::wstring& path);
  /// Registers with these addresses, which starts what is due.
  void Start() const;
  void Uninstall() const;

  std::filesystem::path File(std::string_view name) const;
  /// A value of the record.
  std::string Record(const std::string& key) const;

  std::string appId;
  std::string feedUrl;
  std::string reportUrl;
};

/// Waits until all jobs have transferred or failed, and returns the arguments with which the
/// service would start the executor of the newest.
std::wstring ArgumentsOfNewestJob(const testing_dll::TransferService& service);

#endif  // KUPDATE_EXECUTOR_EXECUTOR_TEST_CLIENT_H_
