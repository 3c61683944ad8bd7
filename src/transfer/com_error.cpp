#include "transfer/com_error.h"

#include "transfer/com_functions.h"

#include <comdef.h>

#include "util/system.h"
#include "util/text.h"

_COM_SMARTPTR_TYPEDEF(IErrorInfo, __uuidof(IErrorInfo));

namespace {

// One of the texts that came with the error, or empty. The system's own wrapper of such a text
// would import the function that frees it.
std::string TextOf(const _com_error& error, HRESULT (STDMETHODCALLTYPE IErrorInfo::*get)(BSTR*)) {
  IErrorInfoPtr info(error.ErrorInfo(), false);
  BSTR text = nullptr;
  if (!info || FAILED((info.GetInterfacePtr()->*get)(&text)) || !text) return {};
  std::string narrow = NarrowUtf8(text);
  com::SysFreeString(text);
  return narrow;
}

}  // namespace

std::string ComErrorText(const _com_error& error) {
  const std::string code = HexText(static_cast<std::uint32_t>(error.Error()));
  std::string text = TextOf(error, &IErrorInfo::GetDescription);
  text.append("\n (_com_error: HRESULT=").append(code);
  const std::string source = TextOf(error, &IErrorInfo::GetSource);
  if (!source.empty()) text.append(", source: '").append(source).append("'");
  const wchar_t* const message = error.ErrorMessage();
  text.append(", message: '")
      .append(message ? NarrowUtf8(message)
                      : ErrorCodeText(static_cast<std::uint32_t>(error.Error())))
      .append("'");
  return text.append(")");
}
