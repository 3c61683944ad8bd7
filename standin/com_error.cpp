#include "standin/com_error.h"

#include "standin/com_object.h"
#include "standin/com_text.h"
#include "util/text.h"
#include "util/win/windows_lean.h"
// After the system's header, which it needs.
#include <bits.h>

namespace standin {
namespace {

class ErrorObject final : public ComObject<IBackgroundCopyError> {
 public:
  ErrorObject(Lifetime& lifetime, const JobError& error) : ComObject(lifetime), error_(error) {}

  HRESULT STDMETHODCALLTYPE GetError(BG_ERROR_CONTEXT* context, HRESULT* code) override {
    *context = static_cast<BG_ERROR_CONTEXT>(error_.context);
    *code = error_.code;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetFile(IBackgroundCopyFile** file) override {
    // The service's answer for an error that belongs to no file: these do not know theirs.
    *file = nullptr;
    return BG_E_FILE_NOT_AVAILABLE;
  }
  // Both descriptions ignore the language that the client asks for: each error has one text.
  HRESULT STDMETHODCALLTYPE GetErrorDescription(DWORD, LPWSTR* text) override {
    return CopyOut(WidenUtf8(error_.text), text);
  }
  HRESULT STDMETHODCALLTYPE GetErrorContextDescription(DWORD, LPWSTR* text) override {
    return CopyOut(L"context " + std::to_wstring(error_.context), text);
  }
  HRESULT STDMETHODCALLTYPE GetProtocol(LPWSTR* protocol) override {
    return CopyOut(L"http", protocol);
  }

 private:
  bool Answers(const GUID& id) override {
    return id == IID_IUnknown || id == __uuidof(IBackgroundCopyError);
  }

  const JobError error_;
};

}  // namespace

IBackgroundCopyError* NewErrorObject(Lifetime& lifetime, const JobError& error) {
  return new ErrorObject(lifetime, error);
}

}  // namespace standin
