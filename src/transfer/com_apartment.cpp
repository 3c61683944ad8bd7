#include "transfer/com_apartment.h"

#include "transfer/com_functions.h"

// Multithreaded, so that no hidden window is made on a thread that pumps no messages.
ComApartment::ComApartment() {
  const auto enter = com::CoInitializeEx.Find();
  entered_ = enter && SUCCEEDED(enter(nullptr, COINIT_MULTITHREADED));
}

ComApartment::~ComApartment() {
  const auto leave = entered_ ? com::CoUninitialize.Find() : nullptr;
  if (leave) leave();
}
