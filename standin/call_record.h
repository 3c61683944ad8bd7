// The frame of every call that a client makes.
#ifndef KUPDATE_STANDIN_CALL_RECORD_H_
#define KUPDATE_STANDIN_CALL_RECORD_H_

#include <functional>
#include <string>

#include "standin/service.h"

namespace standin {

/// Lets the control file fail the call, refuses it for a job of another user, keeps exceptions from
/// leaving it, saves its changes, and journals it with its arguments and its result.
class CallRecord {
 public:
  /// @param call   name as in the interface; a literal
  /// @param jobId  empty for calls of the manager
  CallRecord(Service& service, const char* call, const std::string& jobId = {});
  /// @param job  the job of the call; outlives this object
  CallRecord(Service& service, const char* call, const Job& job);

  /// Takes the call's arguments and, inside the body, its outputs.
  JsonLine& line() { return line_; }

  /// Runs the body unless the call has to fail, and returns the call's result.
  HResult Run(const std::function<HResult()>& body) noexcept;
  /// For calls that this service does not offer.
  HResult NotImplemented() noexcept;

 private:
  HResult Guarded(const std::function<HResult()>& body) noexcept;
  HResult Execute(const std::function<HResult()>& body);
  void Write(HResult result);

  Service& service_;
  const char* call_;
  const Job* job_ = nullptr;
  JsonLine line_;
};

}  // namespace standin

#endif  // KUPDATE_STANDIN_CALL_RECORD_H_
