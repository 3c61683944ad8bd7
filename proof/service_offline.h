// Weeks without a network, with several applications that are used every day.
#ifndef KUPDATE_PROOF_SERVICE_OFFLINE_H_
#define KUPDATE_PROOF_SERVICE_OFFLINE_H_

namespace proof {

struct Weeks {
  int days;
  int applications;
};

/// Starts the applications on so many days, while nobody listens at the web server's address. A
/// day passes by setting every time that is stored back by one and the service's clock forward by
/// one; the system's clock stays as it is.
/// @return whether each day went as it must; what did not is told on stderr
bool GoOffline(const Weeks& weeks);

/// Goes on after GoOffline, in another process, with the web server back: waits for what comes of
/// it, lets more days pass until nothing waits to be reported, and prints the row.
/// @return whether all came as it must
bool ComeOnline(const Weeks& weeks);

}  // namespace proof

#endif  // KUPDATE_PROOF_SERVICE_OFFLINE_H_
