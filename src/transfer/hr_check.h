// Checking COM results. For sources that talk to COM only: this header brings the system's.
#ifndef KUPDATE_TRANSFER_HR_CHECK_H_
#define KUPDATE_TRANSFER_HR_CHECK_H_

#include "util/diag_log.h"
#include "util/log_line.h"
#include "util/win/windows_lean.h"

#include <comdef.h>

/// Takes results by assignment: hrcheck() = job->Resume(); A failing one is logged and thrown as
/// _com_error.
class hrcheck {
 public:
  hrcheck& operator=(HRESULT result) {
    result_ = result;
    if (FAILED(result_)) {
      LOG_E << kHresult << result_;
      throw _com_error(result_);
    }
    return *this;
  }

 private:
  HRESULT result_ = S_OK;
};

#endif  // KUPDATE_TRANSFER_HR_CHECK_H_
