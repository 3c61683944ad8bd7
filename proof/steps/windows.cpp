#include <cstdlib>

#include "proof/steps/hindrance.h"
#include "util/text.h"
#include "util/win/unique.h"

namespace {

UniqueFile holder;

}  // namespace

void Hinder(const std::string& what, int how) {
  holder = UniqueFile(::CreateFileW(WidenUtf8(what).c_str(), GENERIC_READ, static_cast<DWORD>(how),
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!holder) std::abort();
}

void HinderNothing() { holder.reset(); }

void RunHindered(const std::function<void()>& work) {
  work();
  Reply("hindered");
}
