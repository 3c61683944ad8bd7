// The names of the files that several programs, or several parts of one, read and write.
#ifndef KUPDATE_LAYOUT_FILE_NAMES_H_
#define KUPDATE_LAYOUT_FILE_NAMES_H_

#include <optional>
#include <string>
#include <string_view>

// Of one application, in the folder that processes of low integrity can write.
inline constexpr char kRecordFile[] = "appinfo.xml";
inline constexpr char kUpdateFile[] = "updinfo.xml";  ///< the update found
inline constexpr char kStatisticsFile[] = "statistics.xml";

// Of one application, in the local folder.
inline constexpr char kLocalRecordFile[] = "local.xml";
inline constexpr char kAnswerFile[] = "answer.xml";
/// The feed in which a host's check found an update.
inline constexpr char kFeedFile[] = "version.rss";
inline constexpr char kLocalLockFile[] = "local.lock";
inline constexpr char kExecutorLockFile[] = "executor.lock";

/// In the folder of installers, which lies in the local one.
inline constexpr char kInstallLockFile[] = "install.lock";

/// The executor, in the updater's roaming folder where hosts name no other one.
inline constexpr wchar_t kExecutorFile[] = L"kupdate-exec.exe";

/// The largest number of a block of statistics that is on its way.
inline constexpr int kLastBlockId = 100;

/// The file of such a block: "in_work_7.xml".
std::string BlockFile(int blockId);
/// The block whose file has this name. Nothing for other names.
std::optional<int> BlockIdOfFile(std::string_view fileName);

/// The log of a process: hosts and executor of an application share it. Characters
/// that cannot stand in a file's name become "_".
std::wstring LogFile(const std::string& appId);

// The files in the temporary folder to which jobs download. An id with a slash names no file there.

/// A scheduled check's feed, ...
std::wstring ScheduledFeedFile(const std::string& appId);
/// ... the feed of a check that a host drives, ...
std::wstring HostFeedFile(const std::string& appId);
/// ... the answer to a report.
std::wstring ReportAnswerFile(const std::string& appId);

#endif  // KUPDATE_LAYOUT_FILE_NAMES_H_
