// How the executor leaves a machine on which no application needs it any more.
#ifndef KUPDATE_EXECUTOR_SELF_REMOVAL_H_
#define KUPDATE_EXECUTOR_SELF_REMOVAL_H_

#include <string>

/// "--suicide": notes beside the program that it is to go, and with it the data of the application.
/// The note outlives this run, for days may pass until it can be followed.
void WishSelfRemoval(const std::string& appId);

/// Follows a note of this or an earlier run when no application needs this program and no job in
/// the transfer service names it; otherwise leaves the note to a later run. Removes the data of the
/// applications noted, the data folder when it is empty, the note and at last the program. The
/// user's id and its protect value stay. Throws nothing.
void FollowSelfRemovalWish() noexcept;

#endif  // KUPDATE_EXECUTOR_SELF_REMOVAL_H_
