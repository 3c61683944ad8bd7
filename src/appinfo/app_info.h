// The record of one registered application: named values in its appinfo.xml.
#ifndef KUPDATE_APPINFO_APP_INFO_H_
#define KUPDATE_APPINFO_APP_INFO_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "util/folders.h"
#include "util/locker.h"

class XmlNode;

/// Reads and writes single named values of one application's file. Each operation is one locked
/// load-change-save of the whole file, so that host processes and the executor can share it;
/// nothing is cached in between. Keys are XML element names. Keys and values are UTF-8.
///
/// No operation throws for a fault of file or lock: it is logged and the neutral result returned
/// (no change, empty text, false). A file that is there but cannot be read is never written over.
/// One that does not parse is copied to its name with ".bak"; what was read whole stays in use. One
/// object is used by one thread at a time.
class TAppInfo {
 public:
  /// @param appId  the application id; the file lies in the folder of that name.
  explicit TAppInfo(const std::string& appId);
  virtual ~TAppInfo();
  TAppInfo(const TAppInfo&) = delete;
  TAppInfo& operator=(const TAppInfo&) = delete;

  const std::string& AppId() const { return appId_; }

  /// Full path of the file, UTF-8; empty when its folder cannot be told.
  virtual std::string Path() const;

  void Write(std::string_view key, std::string_view value);
  /// Empty when the key or the file is absent.
  std::string Read(std::string_view key) const;
  bool IsValueExist(std::string_view key) const;
  /// Rewrites the file even when the key is absent; a file without values is left untouched.
  void RemoveValue(std::string_view key);

  /// Values that are numbers: 0 for text that holds none.
  std::int64_t ReadNumber(std::string_view key) const;
  void WriteNumber(std::string_view key, std::int64_t value);
  /// Flags are "1" and "0"; set exactly when the value is the number 1.
  bool ReadFlag(std::string_view key) const;
  void WriteFlag(std::string_view key, bool set);

  /// The installed version; each part has 16 bits.
  std::uint16_t VerMajor() const;
  std::uint16_t VerMinor() const;
  std::uint16_t VerSubver() const;
  std::uint16_t VerBuild() const;
  void SetVersion(std::uint16_t major, std::uint16_t minor, std::uint16_t subver,
                  std::uint16_t build);

  bool IsRemoved() const;
  std::string Platform() const;
  std::string Locale() const;

  /// The address of a statistics ping up to the query of the block it carries; empty when the
  /// application has no report address. Defined by the library `stat`, with the identifiers.
  std::string GetPingUrl() const;

 protected:
  /// For stores in another file under another lock.
  /// @param locker  null: no locking
  TAppInfo(std::string appId, std::unique_ptr<TLocker> locker);
  /// Full path of a file in the application's folder, UTF-8; empty when the folder cannot be told.
  std::string PathOf(std::string_view fileName) const { return folder_.PathOf(fileName); }
  /// The value, or nothing when the key or the file is absent or the lock is refused.
  /// @param operation  the name under which a refused lock is logged
  std::optional<std::string> Find(std::string_view key, std::string_view operation) const;

 private:
  /// Loads the file at `path`; one that is missing gives an empty root. False when it is there and
  /// could be neither read nor, where it does not parse, copied to safety: it must not be written
  /// over then.
  bool Load(const std::string& path, XmlNode* root) const;
  /// One locked load-change-save: `edit` says whether the file is to be written.
  void Change(std::string_view operation, const std::function<bool(XmlNode&)>& edit);

  std::string appId_;
  DataFolder folder_;
  std::unique_ptr<TLocker> locker_;
};

#endif  // KUPDATE_APPINFO_APP_INFO_H_
