#include "standin/interface_pins.h"

#include <algorithm>
#include <iterator>

#include "standin/com_object.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

const GUID* const kInterfaces[] = {&__uuidof(IUnknown),
                                   &__uuidof(IClassFactory),
                                   &__uuidof(IBackgroundCopyManager),
                                   &__uuidof(IBackgroundCopyJob),
                                   &__uuidof(IBackgroundCopyJob2),
                                   &__uuidof(IEnumBackgroundCopyJobs),
                                   &__uuidof(IBackgroundCopyError)};

// Nobody ever gets hold of it, so nobody calls what it claims to have.
class PinObject final : public ComObject<IUnknown> {
 public:
  explicit PinObject(Lifetime& uncounted) : ComObject(uncounted) {}

 private:
  bool Answers(const GUID& id) override {
    return std::any_of(std::begin(kInterfaces), std::end(kInterfaces),
                       [&](const GUID* each) { return *each == id; });
  }
};

}  // namespace

long PinInterfaces() {
  IStream* stream = nullptr;
  HRESULT result = ::CreateStreamOnHGlobal(nullptr, TRUE, &stream);
  if (FAILED(result)) return result;
  PinObject* const pin = new PinObject(*new Lifetime);  // all of it stays
  for (const GUID* id : kInterfaces) {
    result = ::CoMarshalInterface(stream, *id, pin, MSHCTX_LOCAL, nullptr, MSHLFLAGS_TABLESTRONG);
    if (FAILED(result)) break;
  }
  return result;
}

}  // namespace standin
