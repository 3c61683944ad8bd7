// The data that one application has to report: one statistics file in memory.
#ifndef KUPDATE_STAT_STAT_HOLDER_H_
#define KUPDATE_STAT_STAT_HOLDER_H_

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "appinfo/app_state.h"

class XmlNode;

/// States, parameters and actions that wait to be reported, with the last value of each: the
/// content of "statistics.xml", or of an in-work file with one block that is being sent. Texts are
/// UTF-8 (bytes as the host gave them). A text keeps every byte over a save and a load, except that
/// blanks (space, tab, line feed, zero byte) at its very start are lost.
///
/// Locks nothing: the caller holds the application's lock from load to save. Holds nothing but
/// memory; used by one thread at a time.
class TStatHolder {
 public:
  /// Fills this fresh holder from a file; an empty or missing one leaves it as it is. A file that
  /// is no whole statistics file is copied to its name with ".bak", and the part that could be
  /// read stays here. One above kMaxStoreBytes is moved to that name.
  /// @param path  UTF-8
  /// @return false when the file is there and could be neither read nor, where damaged, brought to
  ///         safety: it must not be written over then. That was logged.
  /// Throws std::invalid_argument "Unknown state." for a file with an unknown state word; the
  /// file has been moved to its name with ".bak" before, so that the next load starts afresh. The
  /// holder's content is of no use then.
  bool Load(const std::string& path);
  /// Fills this fresh holder from the text of a file.
  /// @return false when the text is no whole statistics file: logged, and the part that was
  /// read stays. Throws std::invalid_argument as Load.
  bool ParseXML(std::string text);

  /// The text of the file.
  std::string MakeXML() const;
  /// Replaces the file; an empty holder deletes it.
  /// @return whether the file is now as the holder says; false was logged.
  bool Save(const std::string& path) const;

  /// Queues a state and makes it the last one. An install or uninstall that repeats the last state
  /// is suppressed; a dayuse right behind an install is not queued; at most one dayuse waits. A
  /// number that is no state is logged and becomes the last state without being queued.
  /// @return false when it was suppressed: nothing has changed.
  bool AddState(AppState state);
  /// Queues a query fragment, sent as it is given.
  void AddOptionalParam(std::string text);
  void AddAction(std::string text);
  /// Sets one value per name.
  /// @param text  name "=" value, split at the first "="; without one it is a name with no value
  /// @return false when the name had that value already: nothing has changed.
  bool SetUniqueParam(std::string_view text);
  /// The value, or empty.
  std::string GetUniqueParam(std::string_view name) const;

  AppState LastState() const { return lastState_; }
  const std::string& LastParam() const { return lastParam_; }
  const std::string& LastAction() const { return lastAction_; }

  /// The day that reports give as the first one, "dd.mm.yyyy": the stored one once it is confirmed;
  /// until then today for an install, else the day on which the user's id was written. Empty when
  /// it is unknown. An empty stored date counts as not confirmed.
  std::string GetFirstDate(AppState state) const;
  void SetFirstDate(std::string date) { firstDate_ = std::move(date); }
  bool Confirmed() const { return confirmed_; }
  /// Confirms the first date, or takes that back. An empty date cannot be confirmed: nothing
  /// happens.
  void SetConfirmed(bool confirmed) { confirmed_ = confirmed && !firstDate_.empty(); }

  bool HasStates() const { return !states_.empty(); }
  /// Whether there is nothing to keep; the first date alone is nothing.
  bool IsEmpty() const;

  /// Moves the oldest state, and the items that fit behind it, from here into `block`: parameters,
  /// unique parameters by name, actions. The last item moved may overrun the budget. Takes time
  /// linear in the moved items.
  /// @param budget  characters of query text
  /// @param block   not null, a fresh holder
  /// @return the state; nothing without a queued one: then nothing is moved, for parameters are
  ///         only ever sent behind a state.
  std::optional<AppState> ExtractBlock(std::int16_t budget, TStatHolder* block);
  /// The query text of a block: "stat=dayuse&a=1&unique=x&action=b,c". The four collections are
  /// empty afterwards. No value is encoded.
  std::string MakeQuery();
  /// Takes a block back: its items go in front of those that are queued here, in their order. Of a
  /// unique parameter the value set here since wins. Last values and first date stay.
  void Merge(TStatHolder&& block);
  /// Empties the four collections; last values and first date stay.
  void Clear();

 private:
  void KeepFirstDayuse();
  void ReadSections(const XmlNode& root);
  void WriteSections(XmlNode* root) const;

  std::deque<AppState> states_;  // oldest first
  std::deque<std::string> optionalParams_;
  std::deque<std::string> actions_;
  std::map<std::string, std::string, std::less<>> uniqueParams_;
  AppState lastState_ = AppState::kDayuse;
  std::string lastParam_;
  std::string lastAction_;
  std::string firstDate_;
  bool confirmed_ = false;
};

#endif  // KUPDATE_STAT_STAT_HOLDER_H_
