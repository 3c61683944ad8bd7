// Hosts that wait for the executor's check right behind their start.
#ifndef KUPDATE_PROOF_SERVICE_WAITS_H_
#define KUPDATE_PROOF_SERVICE_WAITS_H_

namespace proof {

/// Starts an application so many times, a day after the last time, with an update published and reports
/// on, and waits at once for a check: that of the start is still on its way then. Prints the row.
/// @return whether each wait found the update
bool WaitBehindStarts(int starts);

}  // namespace proof

#endif  // KUPDATE_PROOF_SERVICE_WAITS_H_
