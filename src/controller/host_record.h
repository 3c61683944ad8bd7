// The data that hosts give about themselves, and writing it into their record.
#ifndef KUPDATE_CONTROLLER_HOST_RECORD_H_
#define KUPDATE_CONTROLLER_HOST_RECORD_H_

#include <string>

class TAppInfo2;
enum class Channel;
struct HostRelease;

/// `text`, or an exception with `complaint` when it is null.
std::string Required(const char* text, const char* complaint);

/// `text`, or empty when it is null.
std::string OrEmpty(const char* text);

/// Writes what decides about the application into its local record, where processes of low
/// integrity cannot change it. A failure is logged.
/// @param isStart  whether the host has just started: only then an older version counts, for a
///                 program that runs on after its update still names the old one
/// @return the user's choice, which is read on the way
Channel WriteLocalRecord(const std::string& appId, const HostRelease& host, bool isStart);

/// Writes platform, feed address and version. Null texts count as empty.
void WriteRelease(TAppInfo2& store, const HostRelease& host);

/// Writes the channel. Without a choice of the user's, a release build also gives up unstable
/// versions; a beta leaves that as it was.
void WriteChannel(TAppInfo2& store, bool release, Channel chosen);

/// "1.2.3.4.Release" or "1.2.3.4.Beta".
std::string ReleaseText(const HostRelease& host);

#endif  // KUPDATE_CONTROLLER_HOST_RECORD_H_
