#include "standin/codes.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "util/win/windows_lean.h"

namespace standin {
namespace {

// In the order of JobState.
constexpr std::array<std::string_view, 9> kStateNames = {
    "QUEUED",          "CONNECTING",  "TRANSFERRING", "SUSPENDED", "ERROR",
    "TRANSIENT_ERROR", "TRANSFERRED", "ACKNOWLEDGED", "CANCELLED"};

}  // namespace

std::string StateName(int state) {
  const auto index = static_cast<std::size_t>(state);
  return index < kStateNames.size() ? std::string(kStateNames[index]) : std::to_string(state);
}

std::optional<int> ParseState(std::string_view text) {
  for (std::size_t i = 0; i < kStateNames.size(); ++i) {
    if (kStateNames[i] == text) return static_cast<int>(i);
  }
  // Numbers are for states that the service does not have: a client must survive these too.
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::string CodeText(HResult code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(code));
  return text;
}

HResult CodeOfSystemError(unsigned long error) {
  // HRESULT_FROM_WIN32 makes S_OK of 0, but the caller has a failure to report.
  return error == ERROR_SUCCESS ? E_FAIL : HRESULT_FROM_WIN32(error);
}

}  // namespace standin
