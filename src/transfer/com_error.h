// Text of COM errors for the handlers of exceptions.
#ifndef KUPDATE_TRANSFER_COM_ERROR_H_
#define KUPDATE_TRANSFER_COM_ERROR_H_

#include <string>

class _com_error;

/// The error's description when there is one, then its HRESULT, source and system message.
std::string ComErrorText(const _com_error& error);

#endif  // KUPDATE_TRANSFER_COM_ERROR_H_
