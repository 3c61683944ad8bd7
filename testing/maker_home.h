// The maker's folders for tests: the user's and the common one.
#ifndef KUPDATE_TESTING_MAKER_HOME_H_
#define KUPDATE_TESTING_MAKER_HOME_H_

#include <filesystem>
#include <string>
#include <system_error>

#include "layout/folders.h"
#include "testing/data_home.h"
#include "util/registry.h"
#include "util/system.h"
#include "util/text.h"

/// A DataHome whose maker's folders are empty too, of a user for whom no id was made yet.
class MakerHome : public DataHome {
 public:
  MakerHome() { Clean(); }
  ~MakerHome() { Clean(); }

  /// Files in them; the folders are there.
  std::filesystem::path File(const std::string& name) const { return Maker() / name; }
  std::filesystem::path CommonFile(const std::string& name) const {
    std::filesystem::create_directories(Common());
    return Common() / name;
  }

 private:
  static std::filesystem::path Maker() { return NativePath(GetMakerFolder()); }
  static std::filesystem::path Common() {
    return NativePath(NarrowUtf8(GetCommonAppDataFolder(L"Krelix")));
  }

  static void Clean() {
    std::error_code ignored;
    std::filesystem::remove_all(Maker(), ignored);
    std::filesystem::remove_all(Common(), ignored);
    for (const wchar_t* key : {L"Software\\Krelix", L"Software\\AppDataLow\\Krelix"}) {
      JustUtil::RemoveValue(key, L"UICreated_" + LogonName());
    }
  }
};

#endif  // KUPDATE_TESTING_MAKER_HOME_H_
