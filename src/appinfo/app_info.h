// The record of one registered application: named values in its appinfo.xml.
#ifndef KUPDATE_APPINFO_APP_INFO_H_
#define KUPDATE_APPINFO_APP_INFO_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "layout/folders.h"
#include "util/locker.h"

class XmlNode;

/// Larger state files count as ones that do not parse.
inline constexpr std::uint64_t kMaxStoreBytes = std::uint64_t{4} << 20;

/// Reads and writes single named values of one application's file. Each operation is one locked
/// load-change-save of the whole file, so that host processes and the executor can share it;
/// nothing is cached in between, unless a StoreChanges gathers what one operation does. A value
/// that stands there already is not written. Keys are XML element names. Keys and values are UTF-8.
///
/// No operation throws for a fault of file or lock: it is logged and the neutral result returned
/// (no change, empty text, false). A file that is there but cannot be read is never written over.
/// One that does not parse is copied to its name with ".bak"; what was read whole stays in use. One
/// above kMaxStoreBytes is moved to that name. One object is used by one thread at a time.
class TAppInfo {
 public:
  /// @param appId  the application id; the file lies in the folder of that name.
  explicit TAppInfo(const std::string& appId);
  virtual ~TAppInfo();
  TAppInfo(const TAppInfo&) = delete;
  TAppInfo& operator=(const TAppInfo&) = delete;

  const std::string& AppId() const { return appId_; }

  /// Full path of the file, UTF-8; empty when the system does not name its folder.
  virtual std::string Path() const;

  void Write(std::string_view key, std::string_view value);
  /// Empty when the key or the file is absent.
  std::string Read(std::string_view key) const;
  bool IsValueExist(std::string_view key) const;
  void RemoveValue(std::string_view key);
  /// Saves the values that a StoreChanges has gathered so far, at once and in the order in which
  /// they were written; then other processes see them. Without such values it does nothing.
  /// @return false when the file was not written: that was logged, and the next save tries again.
  bool SaveChanges();

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

  /// The address of a report up to the query of the block it carries; empty when the
  /// application has no report address. Defined by the library `stat`, with the identifiers.
  std::string GetPingUrl() const;

 protected:
  /// For stores in another file under another lock.
  /// @param locker  null: no locking
  TAppInfo(std::string appId, std::unique_ptr<TLocker> locker);
  /// Full path of a file in the application's folder, UTF-8; empty when the system does not name
  /// the folder.
  std::string PathOf(std::string_view fileName) const { return folder_.PathOf(fileName); }
  /// The value, or nothing when the key or the file is absent or the lock is refused.
  /// @param operation  the name under which a refused lock is logged
  std::optional<std::string> Find(std::string_view key, std::string_view operation) const;

 private:
  friend class StoreChanges;

  /// One value to be written, or to be removed.
  struct Edit {
    std::string key;
    std::optional<std::string> value;
  };
  /// The file as it was read at the first use, with the edits applied that are not saved yet.
  struct Gathered;

  /// Puts an edit into the tree. False when that changes nothing.
  static bool Apply(const Edit& edit, XmlNode* root);
  /// Carries an edit out, or gathers it.
  void Change(std::string_view operation, Edit edit);
  /// One locked load-change-save.
  bool ChangeFile(std::string_view operation, const std::vector<Edit>& edits) const;
  /// One locked load.
  bool LoadFile(std::string_view operation, XmlNode* root) const;

  std::string appId_;
  DataFolder folder_;
  std::unique_ptr<TLocker> locker_;
  mutable std::unique_ptr<Gathered> gathered_;  // null: each operation works on the file
};

/// Over a scope, gathers what is written to a store: the file is read once, at the first use, reads
/// see what was written, and at the end, or at SaveChanges(), all of it is saved in one step.
/// Within another one of the same store it does nothing: the outer one saves.
class StoreChanges {
 public:
  explicit StoreChanges(TAppInfo& store);
  ~StoreChanges();
  StoreChanges(const StoreChanges&) = delete;
  StoreChanges& operator=(const StoreChanges&) = delete;

 private:
  TAppInfo* store_;  // null: an outer one gathers
};

#endif  // KUPDATE_APPINFO_APP_INFO_H_
