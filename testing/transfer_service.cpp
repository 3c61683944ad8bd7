#include "testing/transfer_service.h"

#include <algorithm>
#include <cstdlib>

#include "testing/data_home.h"
#include "util/clock.h"
#include "util/text.h"

namespace testing_dll {

namespace fs = std::filesystem;

std::wstring Setting(const wchar_t* name) {
  const wchar_t* const value = ::_wgetenv(name);
  return value ? value : L"";
}

std::string HttpUrl(std::string_view path) {
  return NarrowUtf8(Setting(L"KUPDATE_HTTP")) + "/" + std::string(path);
}

std::string Publish(const std::string& name, std::string_view content) {
  WriteBytes(fs::path(Setting(L"KUPDATE_WWW")) / name, content);
  return HttpUrl(name);
}

bool Eventually(const std::function<bool()>& done, int rounds) {
  for (int i = 0; i < rounds; ++i) {
    if (done()) return true;
    SleepMilliseconds(20);
  }
  return false;
}

TransferService::TransferService(std::string_view control, fs::path folder)
    : folder_(std::move(folder)), start_(ReadBytes(File("journal.jsonl")).size()) {
  Control(control);
}

TransferService::~TransferService() { Control({}); }

void TransferService::Control(std::string_view lines) const {
  WriteBytes(File("control.txt"), lines);
}

int TransferService::Count(std::string_view text) const {
  return static_cast<int>(
      std::ranges::count_if(LinesOf(ReadBytes(File("journal.jsonl")).substr(start_)),
                            [&](const std::string& line) { return line.find(text) != line.npos; }));
}

}  // namespace testing_dll
