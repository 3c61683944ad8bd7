// The files of an application in the updater's folders, and their removal.
#ifndef KUPDATE_EXECUTOR_APP_FILES_H_
#define KUPDATE_EXECUTOR_APP_FILES_H_

#include <string>

class TLocker;

/// Forgets an application whose uninstall was reported: records, update and feed go, the statistics
/// stay, so that a later install is reported as one. Nothing happens when the application is
/// installed again.
/// @param lock  the application's statistics lock, under which hosts register; not held by the
///              caller
void ForgetRemovedApplication(const std::string& appId, TLocker* lock);

/// Removes all files that the updater keeps of an application that is not registered, and its
/// folders where nothing else is in them.
/// @param lock  as above
void RemoveApplicationData(const std::string& appId, TLocker* lock);

#endif  // KUPDATE_EXECUTOR_APP_FILES_H_
