// The stand-in transfer service and the web server behind it, as black-box tests meet them.
#ifndef KUPDATE_TESTING_TRANSFER_SERVICE_H_
#define KUPDATE_TESTING_TRANSFER_SERVICE_H_

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace testing_dll {

/// A setting of the program's environment; empty when it is not there.
std::wstring Setting(const wchar_t* name);

std::string HttpUrl(std::string_view path);  ///< KUPDATE_HTTP and the path
/// Puts a file into the folder that the web server serves; returns its address.
std::string Publish(const std::string& name, std::string_view content);

/// Asks every 20 ms until `done`, for up to 20 seconds (1000 rounds).
bool Eventually(const std::function<bool()>& done, int rounds = 1000);

/// Controls the service and reads its journal. Control is reset in the end.
class TransferService {
 public:
  /// @param folder  of the service's files
  explicit TransferService(std::string_view control = {},
                           std::filesystem::path folder = Setting(L"KUPDATE_STANDIN_FOLDER"));
  ~TransferService();

  void Control(std::string_view lines) const;
  /// How many lines of the journal since this was made hold `text`.
  int Count(std::string_view text) const;
  /// One of the service's own files.
  std::filesystem::path File(std::string_view name) const { return folder_ / name; }

 private:
  std::filesystem::path folder_;
  std::size_t start_;
};

}  // namespace testing_dll

#endif  // KUPDATE_TESTING_TRANSFER_SERVICE_H_
