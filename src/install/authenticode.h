// The signature that the system itself finds in a file.
#ifndef KUPDATE_INSTALL_AUTHENTICODE_H_
#define KUPDATE_INSTALL_AUTHENTICODE_H_

#include <string>

/// Whether the file carries an Authenticode signature that the system trusts, made in the name of
/// `publisher`. Shows no window; may ask the network whether certificates were revoked.
/// @param file       an open file's handle, through which it is read
/// @param path       its full path
/// @param publisher  the whole name in the signer's certificate, UTF-8
/// @return false was logged with its cause.
bool IsSignedBy(void* file, const std::wstring& path, const std::string& publisher);

#endif  // KUPDATE_INSTALL_AUTHENTICODE_H_
