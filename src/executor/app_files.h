// What an application leaves in the updater's folders, and its removal.
#ifndef KUPDATE_EXECUTOR_APP_FILES_H_
#define KUPDATE_EXECUTOR_APP_FILES_H_

#include <string>

class TLocker;

/// Whether the application has a record and is not removed.
bool IsRegistered(const std::string& appId);

/// Forgets an application whose uninstall was reported: record, update and feed go, the statistics
/// stay, so that a later install is reported as one. Nothing happens when the application is
/// installed again.
/// @param lock  the application's statistics lock, under which hosts register; not held by the
///              caller
void ForgetRemovedApplication(const std::string& appId, TLocker* lock);

/// Removes all that there is of an application that is not registered, its folders included.
/// @param lock  as above
void RemoveApplicationData(const std::string& appId, TLocker* lock);

#endif  // KUPDATE_EXECUTOR_APP_FILES_H_
