#include "proof/storm_diary.h"

#include <sstream>

#include "testing/data_home.h"
#include "util/win/windows_lean.h"

namespace storm {

Diary::Diary(const std::filesystem::path& file)
    : file_(::CreateFileW(file.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_DELETE,
                          nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)) {}

void Diary::Ready() { Write("ready\n"); }

void Diary::Begin(int call, const std::string& item) {
  Write("? " + std::to_string(call) + " " + item + "\n");
}

void Diary::End(int call, const std::string& item, bool succeeded, unsigned milliseconds) {
  Write((succeeded ? "! " : "x ") + std::to_string(call) + " " + item + " " +
        std::to_string(milliseconds) + "\n");
}

void Diary::Write(const std::string& line) {
  DWORD written = 0;
  ::WriteFile(file_.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

Account ReadDiary(const std::filesystem::path& file) {
  Account account;
  std::istringstream text(ReadBytes(file));
  for (std::string line; std::getline(text, line);) {
    std::istringstream words(line);
    std::string sign;
    std::string item;
    int call = 0;
    unsigned milliseconds = 0;
    words >> sign >> call >> item >> milliseconds;
    if (sign == "?") {
      account.unfinished = call;
      if (item != "-") account.tried.push_back(item);
      continue;
    }
    if (sign != "!" && sign != "x") continue;
    account.unfinished = 0;
    ++account.calls;
    if (sign == "x") ++account.failed;
    if (sign == "!" && item != "-") account.acknowledged.push_back(item);
    if (milliseconds >= account.longestMilliseconds) {
      account.longestMilliseconds = milliseconds;
      account.longestCall = call;
    }
  }
  return account;
}

bool IsState(const std::string& item) { return item == "install" || item == "uninstall"; }

}  // namespace storm
