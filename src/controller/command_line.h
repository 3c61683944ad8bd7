// The texts by which the library, the executor and the transfer service find each other.
#ifndef KUPDATE_CONTROLLER_COMMAND_LINE_H_
#define KUPDATE_CONTROLLER_COMMAND_LINE_H_

#include <string>

/// A path as an argument: in double quotes, unless it begins with one already.
std::wstring QuotedPath(const std::wstring& path);

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
