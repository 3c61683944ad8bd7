// Interfaces that stay known to COM for as long as the server runs.
#ifndef KUPDATE_STANDIN_INTERFACE_PINS_H_
#define KUPDATE_STANDIN_INTERFACE_PINS_H_

namespace standin {

/// Marshals one object, without any other use, for each interface that clients receive, for ever.
///
/// Wine forgets an interface with the last object that was marshalled for it. For that it locks its
/// list of interfaces and waits for the running calls. A running call that returns another object
/// waits for the list: from then on no client gets an answer. One object that stays marshalled
/// prevents this. Windows does not need it, and it does no harm there. Call it once, in the
/// apartment that serves.
/// @return S_OK, or the first failure.
long PinInterfaces();

}  // namespace standin

#endif  // KUPDATE_STANDIN_INTERFACE_PINS_H_
