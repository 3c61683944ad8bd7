// Whole files.
#ifndef KUPDATE_TOOLS_KUPDATE_FILES_H_
#define KUPDATE_TOOLS_KUPDATE_FILES_H_

#include <filesystem>
#include <string>
#include <string_view>

/// @throws std::runtime_error with the path and the reason
std::string ReadWholeFile(const std::filesystem::path& path);

/// Replaces the file in one step: on failure it stays as it was. Its permissions stay.
/// @throws std::runtime_error with the path and the reason
void ReplaceFile(const std::filesystem::path& path, std::string_view bytes);

#endif  // KUPDATE_TOOLS_KUPDATE_FILES_H_
