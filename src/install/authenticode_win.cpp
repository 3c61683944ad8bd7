#include "install/authenticode.h"
#include "util/win/system_library.h"

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/text.h"

namespace {

// The part of the system that judges signatures, from the system's own directory.
class TrustLibrary {
 public:
  TrustLibrary()
      : wintrust_(LoadSystemLibrary(L"wintrust.dll")), crypt32_(LoadSystemLibrary(L"crypt32.dll")) {
    isWhole_ = Find(wintrust_, "WinVerifyTrust", &verify) &&
               Find(wintrust_, "WTHelperProvDataFromStateData", &providerData) &&
               Find(wintrust_, "WTHelperGetProvSignerFromChain", &signer) &&
               Find(crypt32_, "CertGetNameStringW", &certificateName);
  }
  bool IsWhole() const { return isWhole_; }

  decltype(&::WinVerifyTrust) verify = nullptr;
  decltype(&::WTHelperProvDataFromStateData) providerData = nullptr;
  decltype(&::WTHelperGetProvSignerFromChain) signer = nullptr;
  decltype(&::CertGetNameStringW) certificateName = nullptr;

 private:
  template <class Function>
  static bool Find(const UniqueModule& library, const char* name, Function* function) {
    if (!library) return false;
    *function =
        reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library.get(), name)));
    return *function != nullptr;
  }

  UniqueModule wintrust_;
  UniqueModule crypt32_;
  bool isWhole_ = false;
};

// The name in the certificate of the one who signed; empty when there is none.
std::string SignerName(const TrustLibrary& library, HANDLE state) {
  CRYPT_PROVIDER_DATA* const data = library.providerData(state);
  CRYPT_PROVIDER_SGNR* const signer = data ? library.signer(data, 0, FALSE, 0) : nullptr;
  if (!signer || signer->csCertChain == 0) return {};
  wchar_t name[256];
  const DWORD chars =
      library.certificateName(signer->pasCertChain[0].pCert, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0,
                              nullptr, name, static_cast<DWORD>(sizeof name / sizeof name[0]));
  return chars > 1 ? NarrowUtf8(std::wstring_view(name, chars - 1)) : std::string();
}

}  // namespace

bool IsSignedBy(void* file, const std::wstring& path, const std::string& publisher) {
  const TrustLibrary library;
  if (!library.IsWhole()) {
    LOG_E << "The system offers no check of signatures.";
    return false;
  }
  WINTRUST_FILE_INFO info = {};
  info.cbStruct = sizeof info;
  info.pcwszFilePath = path.c_str();
  info.hFile = file;
  WINTRUST_DATA data = {};
  data.cbStruct = sizeof data;
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = WTD_REVOKE_WHOLECHAIN;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &info;
  data.dwStateAction = WTD_STATEACTION_VERIFY;
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  HWND noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
  const LONG verdict = library.verify(noWindow, &action, &data);
  const std::string name = verdict == 0 ? SignerName(library, data.hWVTStateData) : std::string();
  data.dwStateAction = WTD_STATEACTION_CLOSE;
  library.verify(noWindow, &action, &data);
  if (verdict != 0) {
    LOG_E << "The file's Authenticode signature does not verify." << kHresult << verdict;
    return false;
  }
  if (name.empty() || name != publisher) {
    LOG_E << "The file is signed by" << name << "and not by" << publisher << ".";
    return false;
  }
  return true;
}
