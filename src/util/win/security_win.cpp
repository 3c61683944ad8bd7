#include "util/win/security.h"

#include <sddl.h>

UniqueDescriptor DescriptorOf(const wchar_t* text) {
  UniqueDescriptor descriptor;
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, descriptor.put(),
                                                         nullptr);
  return descriptor;
}
