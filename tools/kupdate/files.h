// Whole files.
#ifndef KUPDATE_TOOLS_KUPDATE_FILES_H_
#define KUPDATE_TOOLS_KUPDATE_FILES_H_

#include <string>
#include <string_view>

// Paths are UTF-8, as the tool's arguments are.

/// @throws std::runtime_error with the path and the reason
std::string ReadWholeFile(const std::string& path);

/// Replaces the file in one step: on failure it stays as it was. Its permissions stay.
/// @throws std::runtime_error with the path and the reason
void ReplaceWholeFile(const std::string& path, std::string_view bytes);

#endif  // KUPDATE_TOOLS_KUPDATE_FILES_H_
