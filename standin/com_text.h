// Text for clients.
#ifndef KUPDATE_STANDIN_COM_TEXT_H_
#define KUPDATE_STANDIN_COM_TEXT_H_

#include <string>

#include "standin/codes.h"

namespace standin {

/// Gives the client a copy that it frees with CoTaskMemFree. Returns S_OK or E_OUTOFMEMORY.
HResult CopyOut(const std::wstring& text, wchar_t** copy);

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_TEXT_H_
