#include "transfer/com_apartment.h"

#include "util/win/windows_lean.h"

#include <objbase.h>

// Multithreaded, so that no hidden window is made on a thread that pumps no messages.
ComApartment::ComApartment()
    : entered_(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}

ComApartment::~ComApartment() {
  if (entered_) ::CoUninitialize();
}
