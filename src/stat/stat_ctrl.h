// The way into one application's statistics: recorded, cut into blocks, sent, taken back.
#ifndef KUPDATE_STAT_STAT_CTRL_H_
#define KUPDATE_STAT_STAT_CTRL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "appinfo/app_state.h"
#include "layout/file_names.h"
#include "layout/folders.h"
#include "stat/stat_holder.h"
#include "util/locker.h"

class TAppInfo2;

/// One block on its way: the address that carries it, and the number of the file that holds its
/// data.
struct PingBlock {
  std::string url;      ///< the whole address, nothing in it encoded
  AppState firstState;  ///< the state that the block reports
  int id;               ///< of the in-work file, 0 to 100
};

/// Starts the transfer of a block. Returns whether it was started; throws nothing.
using PingSender = std::function<bool(const std::string& appId, const PingBlock& block)>;

/// Each operation is one locked load-change-save of "statistics.xml" in the application's folder;
/// nothing is cached in between. Texts are UTF-8.
///
/// A lock that is refused, and a file that is there but cannot be read, are logged and postpone the
/// operation: nothing is changed, the result is the neutral one (empty text, dayuse, no block). A
/// file with an unknown state word is moved aside and std::invalid_argument "Unknown state."
/// thrown. The lock is given back on every way out. One object is used by one thread at a time.
class TStatCtrl {
 public:
  /// @param lock  the application's statistics lock, not held by the caller; not owned, outlives
  ///              this object. Null: no locking, for callers that hold it already (it does not
  ///              nest).
  TStatCtrl(std::string appId, TLocker* lock);

  void AddState(AppState state);
  void AddOptionalParam(const std::string& text);
  void AddAction(const std::string& text);
  /// @param text  name "=" value
  void SetUniqueParam(const std::string& text);
  /// Empty when it was never set or has been sent.
  std::string GetUniqueParam(std::string_view name);
  AppState LastState();
  std::string LastParam();

  /// Cuts the next block off the statistics into a new in-work file and makes its address. Nothing
  /// when no state waits, when an operation on the files fails, or when all in-work files are
  /// taken; the waiting data then stays as it was.
  /// @param baseUrl  the report's address up to the query of the block
  /// Throws std::runtime_error "BaseUrl too long." for 1014 characters and more.
  std::optional<PingBlock> GetPingUrl(const std::string& baseUrl);
  /// Puts a block back in front of the waiting data and removes its in-work file.
  /// @param blockId  PingBlock::id; without such a block nothing happens
  void Rollback(int blockId);

  /// Records a report of `app` and sends all that waits, block after block, until the sender
  /// refuses one, which is rolled back. An application without a report address is logged and left
  /// alone.
  /// @param lock  as for the constructor
  /// @param now   seconds since 1970-01-01 UTC
  /// Throws what GetPingUrl throws.
  static void SendStat(TAppInfo2& app, TLocker* lock, std::uint64_t now, const PingSender& send);

 private:
  struct Operation;
  static const Operation kGetPingUrl;
  static const Operation kRollback;

  std::string StatisticsPath() const { return folder_.PathOf(kStatisticsFile); }
  std::string InWorkPath(int blockId) const;
  /// The first id whose in-work file is not there; nothing when all are.
  std::optional<int> FreeBlockId() const;

  /// GetPingUrl after `state`, if any, was added: both cost one change of the file. A state for
  /// which no block is made waits like any other.
  std::optional<PingBlock> NextBlock(const std::string& baseUrl, std::optional<AppState> state);
  /// GetPingUrl under its lock, on the statistics that were loaded. They are whole again where it
  /// gives nothing.
  std::optional<PingBlock> CutBlock(const std::string& baseUrl, TStatHolder* waiting);

  /// `edit` says whether the file is to be written.
  void Change(const Operation& operation, const std::function<bool(TStatHolder&)>& edit);
  /// The content of the file; a fresh holder when the operation is postponed.
  TStatHolder Read(const Operation& operation);

  DataFolder folder_;
  TLocker* lock_;
};

#endif  // KUPDATE_STAT_STAT_CTRL_H_
