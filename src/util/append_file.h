// The log's own way to its file: it must not use the file helpers, which log.
#ifndef KUPDATE_UTIL_APPEND_FILE_H_
#define KUPDATE_UTIL_APPEND_FILE_H_

#include <string>
#include <string_view>

/// Opens the file (made when absent), appends `text` in one write and closes it. On Windows each LF
/// is written as CR LF. Others may read, write and rename the file meanwhile. Logs nothing.
/// @return whether everything was written.
bool AppendToFile(const std::wstring& path, std::string_view text);

#endif  // KUPDATE_UTIL_APPEND_FILE_H_
