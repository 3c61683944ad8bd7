// Smart pointers to the transfer service. For this folder's sources only.
#ifndef KUPDATE_TRANSFER_BITS_INTERFACES_H_
#define KUPDATE_TRANSFER_BITS_INTERFACES_H_

#include "transfer/hr_check.h"

#include <bits.h>
#include <bits5_0.h>

#include <string>

#include "transfer/transfer.h"

_COM_SMARTPTR_TYPEDEF(IBackgroundCopyManager, __uuidof(IBackgroundCopyManager));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob, __uuidof(IBackgroundCopyJob));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob2, __uuidof(IBackgroundCopyJob2));
_COM_SMARTPTR_TYPEDEF(IBackgroundCopyJob5, __uuidof(IBackgroundCopyJob5));

/// Connects to the service. Throws _com_error.
IBackgroundCopyManagerPtr ConnectToService();

/// Whether one more job of that purpose keeps to the limits: kMaxOwnJobs and kMaxReports, which
/// hold for jobs on their way that start the executor, and kMaxJobsOfAllKinds. A refusal is logged
/// as TBitsTransfer::Work. Abandoned jobs are ended: those that stand still always, those on their
/// way only when there is no room. True when the jobs cannot be listed.
bool IsRoomForJob(const IBackgroundCopyManagerPtr& manager, JobPurpose purpose);

/// The state of a job, which is logged. Throws _com_error.
JobState StateOf(IBackgroundCopyJob& job);

/// Completes a job that has transferred; where that fails, and in every other state, cancels it.
/// Throws _com_error when the job cannot be asked.
/// @param fault  receives the first result that failed; S_OK when none did
EndedJob EndOpenedJob(IBackgroundCopyJob& job, HRESULT* fault);

/// As ListOwnJobs, inside an apartment. Throws _com_error.
std::vector<JobFacts> ListJobs();

/// A job's id in registry form, with braces.
std::wstring GuidText(const GUID& id);

#endif  // KUPDATE_TRANSFER_BITS_INTERFACES_H_
