#include "transfer/com_apartment.h"

#include "transfer/com_functions.h"

// Multithreaded, so that COM makes no hidden window on a thread that pumps no messages. The call
// fails in a thread that the host has put into an apartment of the other kind; that one serves as
// well, and is the host's to leave.
ComApartment::ComApartment() {
  const auto enter = com::CoInitializeEx.Find();
  entered_ = enter && SUCCEEDED(enter(nullptr, COINIT_MULTITHREADED));
}

ComApartment::~ComApartment() {
  const auto leave = entered_ ? com::CoUninitialize.Find() : nullptr;
  if (leave) leave();
}
