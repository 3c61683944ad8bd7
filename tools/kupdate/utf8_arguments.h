// The program's arguments.
#ifndef KUPDATE_TOOLS_KUPDATE_UTF8_ARGUMENTS_H_
#define KUPDATE_TOOLS_KUPDATE_UTF8_ARGUMENTS_H_

#include <string>
#include <vector>

/// The arguments without the program's name as UTF-8, the last one first, as the reader of options
/// takes them. On Windows the console takes UTF-8 from here on.
std::vector<std::string> Utf8Arguments(int argc, char** argv);

#endif  // KUPDATE_TOOLS_KUPDATE_UTF8_ARGUMENTS_H_
