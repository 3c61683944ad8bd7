// The proofs of this program. Each prints its rows and returns whether all its promises held.
#ifndef KUPDATE_PROOF_STORM_H_
#define KUPDATE_PROOF_STORM_H_

#include <cstdint>

namespace storm {

/// Processes are killed until `kills` have met a living one.
bool RunKills(int kills, std::uint32_t seed);
/// Eight hosts make `calls` calls each: on one application, then on one each.
bool RunContention(int calls, std::uint32_t seed);
/// Eight hosts call everything for so long, and wait for executors.
bool RunWaiting(int seconds, std::uint32_t seed);
/// The library is loaded, makes a call that fails by a throw, and is freed.
bool RunLoading(int cycles);

}  // namespace storm

#endif  // KUPDATE_PROOF_STORM_H_
