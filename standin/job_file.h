// The text of the file of jobs.
#ifndef KUPDATE_STANDIN_JOB_FILE_H_
#define KUPDATE_STANDIN_JOB_FILE_H_

#include <string>
#include <string_view>
#include <vector>

#include "standin/job_record.h"

namespace standin {

/// One line a value, `key value`; "job" begins a job and "url" a file of it. Values are UTF-8;
/// control characters and "%" are written as "%" and two hexadecimal digits.
std::string FormatJobs(const std::vector<JobRecord>& jobs);

/// The reverse. Ignores lines that it does not understand.
std::vector<JobRecord> ParseJobs(std::string_view text);

}  // namespace standin

#endif  // KUPDATE_STANDIN_JOB_FILE_H_
