// The log's own way to its file: it must not use the file helpers, which log.
#ifndef KUPDATE_UTIL_APPEND_FILE_H_
#define KUPDATE_UTIL_APPEND_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>

/// Opens the file (made when absent), appends `text` in one write and closes it. On Windows each LF
/// is written as CR LF. Other processes may read, write and rename the file at the same time. Logs
/// nothing.
/// @return whether everything was written.
bool AppendToFile(const std::wstring& path, std::string_view text);

/// Renames a file of more than `maxBytes` to its name with ".bak", over an older one. Of several
/// processes that do so at once one succeeds; the others find it done. A process that has the file
/// open goes on writing to it under its new name. A file that another program keeps from being
/// renamed stays. Logs nothing.
void MoveAsideAbove(const std::wstring& path, std::uint64_t maxBytes);

#endif  // KUPDATE_UTIL_APPEND_FILE_H_
