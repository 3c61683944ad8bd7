#include "appinfo/app_state.h"

#include <stdexcept>

namespace {

constexpr std::string_view kWords[] = {"install", "uninstall", "dayuse"};
constexpr int kCount = 3;

}  // namespace

AppState TAppStateHolder::Import(std::string_view word) {
  for (int state = 0; state < kCount; ++state) {
    if (kWords[state] == word) return AppState{state};
  }
  throw std::invalid_argument("Unknown state.");
}

std::string_view TAppStateHolder::Text(AppState state) {
  const int number = static_cast<int>(state);
  return number >= 0 && number < kCount ? kWords[number] : std::string_view();
}
