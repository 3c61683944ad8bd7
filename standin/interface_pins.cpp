#include "standin/interface_pins.h"

#include <algorithm>
#include <array>

#include "standin/com_object.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

// Without IBackgroundCopyJob5: Wine has no proxies for it, so it never leaves the process.
std::array<GUID, 7> Interfaces() {
  return {__uuidof(IUnknown),
          __uuidof(IClassFactory),
          __uuidof(IBackgroundCopyManager),
          __uuidof(IBackgroundCopyJob),
          __uuidof(IBackgroundCopyJob2),
          __uuidof(IEnumBackgroundCopyJobs),
          __uuidof(IBackgroundCopyError)};
}

// No client ever gets this object, so it needs no functions of the interfaces that it claims.
class PinObject final : public ComObject<IUnknown> {
 public:
  explicit PinObject(Lifetime& uncounted) : ComObject(uncounted) {}

 private:
  bool Answers(const GUID& id) override {
    const auto known = Interfaces();
    return std::find(known.begin(), known.end(), id) != known.end();
  }
};

}  // namespace

long PinInterfaces() {
  IStream* stream = nullptr;
  HRESULT result = ::CreateStreamOnHGlobal(nullptr, TRUE, &stream);
  if (FAILED(result)) return result;
  // Object, counter and stream are never deleted: each interface must stay known to the end.
  static PinObject& pin = *new PinObject(*new Lifetime);
  for (const GUID& id : Interfaces()) {
    result = ::CoMarshalInterface(stream, id, &pin, MSHCTX_LOCAL, nullptr, MSHLFLAGS_TABLESTRONG);
    if (FAILED(result)) break;
  }
  return result;
}

}  // namespace standin
