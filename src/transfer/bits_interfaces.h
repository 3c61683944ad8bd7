// Smart pointers to the transfer service. For this folder's sources only.
#ifndef KUPDATE_TRANSFER_BITS_INTERFACES_H_
#define KUPDATE_TRANSFER_BITS_INTERFACES_H_

#include "transfer/hr_check.h"

#include <bits.h>

#include <string>

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));

/// Connects to the service. Throws _com_error.
IBackgroundCopyManagerPtr ConnectToService();

/// Whether fewer than kMaxOwnJobs of our jobs are still to be transferred. Those that have ended or
/// stand still do not count: only what is on its way will surely wake the executor, which tidies up.
/// A refusal is logged. True when the jobs cannot be listed.
bool IsRoomForJob(const IBackgroundCopyManagerPtr& manager);

/// A job's id in registry form, with braces.
std::wstring GuidText(const GUID& id);

#endif  // KUPDATE_TRANSFER_BITS_INTERFACES_H_
