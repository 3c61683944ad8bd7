#include "standin/journal.h"

#include <cstdio>

#include "util/win/unique.h"

namespace standin {
namespace {

std::string TimeText() {
  SYSTEMTIME now;
  ::GetSystemTime(&now);
  char text[40];
  std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", now.wYear, now.wMonth,
                now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
  return text;
}

bool Put(HANDLE file, const std::string& text) {
  DWORD written = 0;
  return ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
         written == text.size();
}

// The file is opened for each line: then readers find the line at once, and may move or delete the
// file in between.
bool AppendLine(const std::wstring& path, const std::string& line) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const UniqueFile file(::CreateFileW(path.c_str(), FILE_APPEND_DATA, kShareAll, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  return file && Put(file.get(), line);
}

}  // namespace

void Journal::Write(const JsonLine& line) { WriteWhole(line, false); }

void Journal::WriteError(const JsonLine& line) { WriteWhole(line, true); }

void Journal::Problem(std::string_view text) {
  WriteError(JsonLine().Text("event", "problem").Text("text", text));
}

void Journal::Close() {
  const std::lock_guard lock(mutex_);
  // Under the lock: a line that is being written is whole before the caller ends the process.
  closed_ = true;
}

void Journal::WriteWhole(const JsonLine& line, bool echo) {
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  const std::string text = "{\"time\":\"" + TimeText() + "\"," + line.members() + "}\n";
  const bool written = AppendLine(path_, text);
  // A server that the system starts may have no stderr. Then this fails without harm.
  if (echo || !written) Put(::GetStdHandle(STD_ERROR_HANDLE), text);
}

}  // namespace standin
