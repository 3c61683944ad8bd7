// Security descriptors: made from their texts, and judged.
#ifndef KUPDATE_UTIL_WIN_SECURITY_H_
#define KUPDATE_UTIL_WIN_SECURITY_H_

#include "util/win/unique.h"

struct DescriptorTraits {
  using Type = PSECURITY_DESCRIPTOR;
  static Type None() { return nullptr; }
  static void Close(Type descriptor) { ::LocalFree(descriptor); }
};
using UniqueDescriptor = Unique<DescriptorTraits>;

/// The descriptor of a text in the system's own language for them; empty when it is wrong.
UniqueDescriptor DescriptorOf(const wchar_t* text);

#endif  // KUPDATE_UTIL_WIN_SECURITY_H_
