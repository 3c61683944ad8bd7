// Output for people.
#ifndef KUPDATE_EXECUTOR_CONSOLE_H_
#define KUPDATE_EXECUTOR_CONSOLE_H_

#include <string_view>

enum class ConsoleStream { kOutput, kError };

/// Writes UTF-8 text: as it is into a file or pipe, converted to a console, and to that of the
/// parent when this process has none of its own. Lost when there is no place for it.
void WriteToConsole(ConsoleStream stream, std::string_view text);

#endif  // KUPDATE_EXECUTOR_CONSOLE_H_
