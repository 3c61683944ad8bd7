#include "transfer/com_error.h"

#include "util/win/windows_lean.h"

#include <comdef.h>

#include "util/system.h"
#include "util/text.h"

namespace {

std::string Narrow(const _bstr_t& text) {
  const wchar_t* const wide = text;
  return wide ? NarrowUtf8(wide) : std::string();
}

}  // namespace

std::string ComErrorText(const _com_error& error) {
  const std::string code = HexText(static_cast<std::uint32_t>(error.Error()));
  std::string text = Narrow(error.Description());
  text.append("\n (_com_error: HRESULT=").append(code);
  const std::string source = Narrow(error.Source());
  if (!source.empty()) text.append(", source: '").append(source).append("'");
  const wchar_t* const message = error.ErrorMessage();
  text.append(", message: '")
      .append(message ? NarrowUtf8(message)
                      : ErrorCodeText(static_cast<std::uint32_t>(error.Error())))
      .append("'");
  return text.append(")");
}
