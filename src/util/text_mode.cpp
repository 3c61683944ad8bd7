#include "util/text_mode.h"

#include <algorithm>

std::string WithCrLf(std::string_view text) {
  std::string result;
  result.reserve(text.size() +
                 static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
  std::size_t written = 0;
  for (std::size_t lf; (lf = text.find('\n', written)) != text.npos; written = lf + 1) {
    result.append(text.substr(written, lf - written)).append("\r\n");
  }
  result.append(text.substr(written));
  return result;
}

std::size_t TextBytesIn(std::string_view text, std::size_t written) {
  // Counts as the text does, so that a short write and a whole one log comparable numbers.
  std::size_t count = 0;
  for (std::size_t onDisk = 0; count < text.size(); ++count) {
    onDisk += text[count] == '\n' ? 2 : 1;
    if (onDisk > written) break;
  }
  return count;
}

void DropCrBeforeLf(std::string* text) {
  constexpr const char* kCrLf = "\r\n";
  // Moves whole runs between two ends of line, which is faster than byte by byte.
  std::size_t cr = text->find(kCrLf);
  std::size_t kept = cr;
  while (cr != std::string::npos) {
    const std::size_t next = std::min(text->find(kCrLf, cr + 1), text->size());
    std::copy(text->begin() + static_cast<std::ptrdiff_t>(cr + 1),
              text->begin() + static_cast<std::ptrdiff_t>(next),
              text->begin() + static_cast<std::ptrdiff_t>(kept));
    kept += next - cr - 1;
    cr = next == text->size() ? std::string::npos : next;
  }
  if (kept != std::string::npos) text->resize(kept);
}
