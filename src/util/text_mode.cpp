#include "util/text_mode.h"

#include <algorithm>

std::string WithCrLf(std::string_view text) {
  std::string result;
  result.reserve(text.size() +
                 static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
  for (const char c : text) {
    if (c == '\n') result += '\r';
    result += c;
  }
  return result;
}

void DropCrBeforeLf(std::string* text) {
  std::size_t kept = text->find("\r\n");
  if (kept == std::string::npos) return;
  for (std::size_t i = kept; i < text->size(); ++i) {
    const bool dropped = (*text)[i] == '\r' && i + 1 < text->size() && (*text)[i + 1] == '\n';
    if (!dropped) (*text)[kept++] = (*text)[i];
  }
  text->resize(kept);
}
