// The texts by which the library, the executor and the transfer service find each other.
#ifndef KUPDATE_CONTROLLER_COMMAND_LINE_H_
#define KUPDATE_CONTROLLER_COMMAND_LINE_H_

#include <string>
#include <string_view>

/// Whether an id can stand in a command line, where nothing quotes it: one that holds a quote or
/// " --", or begins with "--", would be read as switches of its own.
bool IsPlainId(std::wstring_view appId);

/// A path as an argument: in double quotes, unless it begins with one already.
std::wstring QuotedPath(const std::wstring& path);

// Each of the next three logs an id that is not plain, and throws std::invalid_argument.

/// The executor's arguments after a feed was downloaded.
std::wstring UpdateCheckArguments(const std::wstring& appId, const std::wstring& resultFile);

/// The executor's arguments after a ping was sent.
/// @param callbackId  of the block that the ping carried
/// @param suicide     whether the executor is to remove itself when nobody needs it any more
std::wstring PingArguments(const std::wstring& appId, int callbackId, bool suicide);

/// The whole command line of a silent install.
std::wstring SilentUpdateCommandLine(const std::wstring& executor, const std::wstring& appId);

/// The event that tells of an application's check or install being done.
std::wstring ResultEventName(const std::wstring& appId);

#endif  // KUPDATE_CONTROLLER_COMMAND_LINE_H_
