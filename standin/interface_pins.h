// Interfaces that stay known to COM for as long as the server runs.
#ifndef KUPDATE_STANDIN_INTERFACE_PINS_H_
#define KUPDATE_STANDIN_INTERFACE_PINS_H_

namespace standin {

/// Marshals an object of no use once for each interface that clients are handed, and leaves it so.
///
/// Wine forgets an interface with the last object that was marshalled for it. To do so it waits,
/// with its list of interfaces locked, for the calls that are under way; one of these that hands
/// out another object waits for the list: from then on no client gets an answer. With one object
/// that stays, no interface is ever forgotten. Windows needs none of this, and it does no harm
/// there. To be called once, in the apartment that serves.
/// @return S_OK, or the first failure.
long PinInterfaces();

}  // namespace standin

#endif  // KUPDATE_STANDIN_INTERFACE_PINS_H_
