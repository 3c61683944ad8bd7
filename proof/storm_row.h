// The result of one promise, as a row of a table.
#ifndef KUPDATE_PROOF_STORM_ROW_H_
#define KUPDATE_PROOF_STORM_ROW_H_

#include <string>

namespace storm {

/// Prints "| promise | tried | found | held |" and returns `held`.
bool Row(const std::string& promise, const std::string& tried, const std::string& found, bool held);

/// What went wrong, each told on stderr at once.
class Complaints {
 public:
  void Add(const std::string& text);
  int count() const { return count_; }
  bool none() const { return count_ == 0; }
  /// "0 faults", or their number and the first.
  std::string Text() const;

 private:
  int count_ = 0;
  std::string first_;
};

/// Says on stderr how far the run is.
void Progress(const std::string& text);

/// Counts as progress; where the program is then is told when it goes no further.
void At(const std::string& place);

/// Ends the program with exit code 3 when nothing of these has been called for two minutes.
void StartWatchdog();

}  // namespace storm

#endif  // KUPDATE_PROOF_STORM_ROW_H_
