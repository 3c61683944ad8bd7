// Confirming a block of statistics that has reached the server.
#ifndef KUPDATE_EXECUTOR_BLOCK_CONFIRM_H_
#define KUPDATE_EXECUTOR_BLOCK_CONFIRM_H_

#include <optional>
#include <string>

#include "appinfo/app_state.h"

class TLocker;

/// Forgets a block: its day becomes the application's confirmed first day, unless one was confirmed
/// before, and its in-work file is removed. The order is such that a kill in between only makes the
/// block known for longer.
/// @param lock  the application's statistics lock, not held by the caller; null: no locking
/// @return the state that the block reported; nothing when it is not there or something cannot be
///         read or written: then it was logged and the block is left for a later run.
/// Throws std::invalid_argument for a file with an unknown state, which has been moved aside.
std::optional<AppState> ConfirmBlock(const std::string& appId, int blockId, TLocker* lock);

#endif  // KUPDATE_EXECUTOR_BLOCK_CONFIRM_H_
