// What one application's files hold, and what of it has arrived at the web server.
#ifndef KUPDATE_PROOF_STORM_STORES_H_
#define KUPDATE_PROOF_STORM_STORES_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "proof/storm_diary.h"

namespace storm {

struct Stores {
  std::vector<std::string> faults;  ///< files that do not parse, or that someone found not to parse
  Counts waiting;                   ///< items in statistics.xml
  Counts inWork;                    ///< items in in_work_n.xml, once for each file
  int blocks = 0;                   ///< in_work_n.xml files
  std::string locale;
};

/// Reads the files as they are; meant for a moment when nobody writes.
Stores ReadStores(const std::string& appId);

/// Dates all in-work files back by 16 days: housekeeping takes them back then.
void AgeBlocks(const std::string& appId);

/// The items of all reports that the web server has got since this was made, by application, each as often as it came.
class Arrivals {
 public:
  Arrivals();
  /// Reads what has come to the server's log since the last time.
  void Update();
  const Counts& Of(const std::string& appId) { return counts_[appId]; }

 private:
  void Take(const std::string& line);

  std::size_t position_;
  std::map<std::string, Counts> counts_;
};

}  // namespace storm

#endif  // KUPDATE_PROOF_STORM_STORES_H_
