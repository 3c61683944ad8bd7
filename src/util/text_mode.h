// The text form of files on Windows: CR LF on disk, LF in memory.
#ifndef KUPDATE_UTIL_TEXT_MODE_H_
#define KUPDATE_UTIL_TEXT_MODE_H_

#include <cstddef>
#include <string>
#include <string_view>

/// Each LF becomes CR LF, one that has a CR before it too.
std::string WithCrLf(std::string_view text);

/// How many bytes of `text` are whole within the first `written` bytes of WithCrLf(text).
std::size_t TextBytesIn(std::string_view text, std::size_t written);

/// Each CR LF becomes LF, in place; a CR that stands alone stays.
void DropCrBeforeLf(std::string* text);

#endif  // KUPDATE_UTIL_TEXT_MODE_H_
