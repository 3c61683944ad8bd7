// New GUIDs.
#ifndef KUPDATE_UTIL_GUID_H_
#define KUPDATE_UTIL_GUID_H_

#include <string>

/// A new GUID in registry form with braces, 38 characters; empty when the system gives none.
std::string NewGuidText();

#endif  // KUPDATE_UTIL_GUID_H_
