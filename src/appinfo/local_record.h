// The data that decides about an application, where processes of low integrity cannot write.
#ifndef KUPDATE_APPINFO_LOCAL_RECORD_H_
#define KUPDATE_APPINFO_LOCAL_RECORD_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// The versions that the user has chosen to be offered.
enum class Channel {
  kOfBuild,  ///< no choice: what the running build says about itself
  kRelease,
  kBeta,  ///< beta versions too
};

/// An application as its last run described it, in "Krelix\Updater\<id>\local.xml" of the local
/// per-user folder. The stores in LocalLow hold the same and more, but any process of the user can
/// write there: what they say is a hint, this decides. Texts are UTF-8.
struct LocalRecord {
  std::uint64_t version = 0;  ///< that ran or was installed last, as VersionNumber packs it
  std::string platform;
  std::string executor;  ///< the program that the host named; empty: the default one
  bool release = false;  ///< whether the build that ran is a release; false: a beta
  bool removed = false;
  Channel channel = Channel::kOfBuild;  ///< no host writes it, so it outlives starts and updates

  /// Whether an update for the beta channel may be installed.
  bool TakesBetas() const {
    return channel == Channel::kOfBuild ? !release : channel == Channel::kBeta;
  }
  bool operator==(const LocalRecord&) const = default;
};

/// Nothing when the application has no record here, or one that cannot be read. Waits for nothing.
std::optional<LocalRecord> ReadLocalRecord(const std::string& appId);

/// Changes the record, under its lock and in one step. A missing one begins with the values above,
/// and so does a damaged one, which is copied to its name with ".bak"; one that cannot be read
/// stays as it is. A record that does not change is not written.
/// @param edit  may be called twice
/// @return false when it was not written, as in a process of low integrity: that was logged.
bool ChangeLocalRecord(const std::string& appId, const std::function<void(LocalRecord&)>& edit);

/// Whether the application is registered and not removed. In doubt, with a record that cannot be
/// read, it is.
bool IsLiving(const std::string& appId);

/// The executor's answers, in "answer.xml" beside the record. Only the executor writes them, one
/// process at a time. A host takes an answer for its own when it names the job (the process) that
/// the host started: an older answer, or one that another process forged elsewhere, does not count.
struct CheckAnswer {
  std::string job;  ///< the transfer job's id
  bool found = false;
};
struct InstallAnswer {
  std::string run;  ///< the executor's run, as RunIdOf names it
  std::int32_t code = 0;
};
/// False was logged.
bool WriteAnswer(const std::string& appId, const CheckAnswer& answer);
bool WriteAnswer(const std::string& appId, const InstallAnswer& answer);
/// Nothing when the last answer is for another job (run), or cannot be read.
std::optional<bool> ReadCheckAnswer(const std::string& appId, const std::string& job);
std::optional<std::int32_t> ReadInstallAnswer(const std::string& appId, const std::string& run);

#endif  // KUPDATE_APPINFO_LOCAL_RECORD_H_
