// From the recorded update to the installer's code, against a web server, with manifests that
// OpenSSL signed.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <wincrypt.h>

#include <filesystem>
#include <functional>
#include <map>
#include <vector>

#include "appinfo/local_record.h"
#include "install/manifest.h"
#include "install/private_file.h"
#include "install/silent_install.h"
#include "install/silent_update.h"
#include "layout/folders.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
#include "update/upd_info.h"
#include "util/text.h"
#include "util/win/security.h"

namespace {

namespace fs = std::filesystem;
using testing_dll::Setting;

constexpr std::uint64_t kNow = 1'800'000'000;
constexpr char kRecord[] = "C:\\kupdate-record.txt";

std::string Prepared(const std::string& name) {
  return ReadBytes(fs::path(Setting(L"KUPDATE_TEST_KEY")) / name);
}

// What stands between the first and the last line of a PEM file.
std::string PublicKey(const std::string& name) {
  std::string text;
  for (const std::string& line : LinesOf(Prepared(name + ".pub.pem"))) {
    if (!line.starts_with("-----")) text += line;
  }
  return text;
}

// The folders of installations.
std::vector<fs::path> PrivateFolders() {
  std::vector<fs::path> folders;
  for (const auto& entry :
       fs::directory_iterator(GetUpdaterLocalFolder("Install", CreateFolder::kYes))) {
    if (entry.is_directory()) folders.push_back(entry.path());
  }
  return folders;
}

// A published update, and a client that found it.
struct Update {
  const DataHome home;
  std::string manifest;
  std::string file = ReadBytes(Setting(L"KUPDATE_TEST_INSTALLER"));
  std::map<std::string, std::string> values = {{"VerMajor", "2"}, {"VerBuild", "1"}};
  LocalRecord record{MakeVersion(1, 0, 0, 0), "win", "", /*release=*/true, /*removed=*/false};
  InstallSettings settings;
  std::function<void()> happens;  // when the file is asked for

  // The feed says what the manifest says.
  explicit Update(const std::string& name) : manifest(Prepared(name + ".sig")) {
    Manifest parsed;
    EXPECT_EQ(ParseManifest(manifest, &parsed), "");
    values["DistroUrl"] = testing_dll::HttpUrl("update");
    const bool isMsi = parsed.starter == Starter::kMsi;
    if (isMsi) values["DistroStarter"] = "msi";
    values[isMsi ? "MSIArgs" : "DistroArgs"] = parsed.args;
    settings.now = kNow;
    Trust({});
  }

  // The publisher's key, for these applications.
  void Trust(std::vector<std::string> apps) {
    settings.trust.publicKeys = {{"no key", {}},
                                 {PublicKey("other"), {"nothing"}},
                                 {PublicKey("publisher"), std::move(apps)}};
  }

  int Install() {
    testing_dll::Publish("update", file);
    testing_dll::Publish("update.sig", manifest);
    if (manifest.empty()) fs::remove(fs::path(Setting(L"KUPDATE_WWW")) / "update.sig");
    const RawServer own([this](const std::string& request) {
      const bool isFile = !request.ends_with(".sig");
      if (isFile) happens();
      const std::string& content = isFile ? file : manifest;
      return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n" +
             content;
    });
    if (happens) values["DistroUrl"] = own.Url("/update");
    fs::remove(kRecord);
    WriteBytes(home.AppFolder("app") / "appinfo.xml", "<appinfo><VerMajor>1</VerMajor></appinfo>");
    for (const auto& [key, value] : values) TUpdInfo("app").Write(key, value);
    ChangeLocalRecord("app", [this](LocalRecord& known) { known = record; });
    return InstallUpdate("app", settings);
  }

  // Puts a library beside the file. Wine allows that to the owner of the folder, Windows to no user.
  static void AddLibrary() {
    const fs::path folder = PrivateFolders().front();
    ::SetFileSecurityW(folder.c_str(), DACL_SECURITY_INFORMATION,
                       DescriptorOf(L"D:(A;;FA;;;WD)").get());
    WriteBytes(folder / "version.dll", "evil");
  }
  void Remove() {
    record.removed = true;
    ChangeLocalRecord("app", [](LocalRecord& known) { known.removed = true; });
  }
};

TEST(Install, ThePublishersFileIsRunAsItDeclares) {
  const struct {
    const char* label;
    unsigned code;
    std::string arguments;  // as they stand in the manifest
    VersionNumber version;  // that the record has then
  } rows[] = {{"good", 7, " /code=7 \"a b\"", MakeVersion(1, 0, 0, 0)},
              {"restart", 3010, " /code=3010", MakeVersion(2, 0, 0, 1)},
              {"crash", 0xC0000005, " /crash", MakeVersion(1, 0, 0, 0)}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    Update update(row.label);
    update.Trust({"other", "app"});
    EXPECT_EQ(update.Install(), static_cast<int>(row.code));
    const std::string line = ReadBytes(kRecord);
    EXPECT_TRUE(line.starts_with("\"C:\\users\\")) << line;
    EXPECT_TRUE(line.ends_with(".exe\" /record=C:\\kupdate-record.txt" + row.arguments)) << line;
    EXPECT_TRUE(PrivateFolders().empty());
    update.record.version = row.version;
    EXPECT_EQ(ReadLocalRecord("app"), update.record);
  }
}

TEST(Install, MsiIsOpenedByTheSystemsInstaller) {
  const LogCapture log;
  EXPECT_GT(Update("msi").Install(), 0);
  EXPECT_TRUE(log.Has("Run: C:\\windows\\system32\\msiexec.exe /i \"C:"));
  EXPECT_TRUE(log.Has(".msi\" /qn"));
}

TEST(Install, AnInstallerThatGoesOnIsLeftAloneUntilItEnds) {
  const LogCapture log;
  Update update("long");
  update.settings.installerLimitSeconds = 0;
  EXPECT_EQ(update.Install(), kInstallStillRunning);
  EXPECT_TRUE(log.Has("The installer is still running after 0 seconds."));
  RemoveInstallLeftovers();
  EXPECT_EQ(PrivateFolders().size(), 1u);
  EXPECT_TRUE(testing_dll::Eventually([] {
    RemoveInstallLeftovers();
    return PrivateFolders().empty();
  }));
}

TEST(Install, WhatItsPublisherDoesNotVouchForIsRefused) {
  const struct {
    const char* manifest;
    void (*change)(Update&);
    int want;
    const char* line;
  } rows[] = {
      {"good", [](Update& u) { u.settings.trust = {}; }, kInstallNotTrusted,
       "No update is ever run: this build knows no publisher's key."},
      {"good", [](Update& u) { u.settings.trust.publicKeys.pop_back(); }, kInstallNotTrusted,
       "no key of this build signed it."},
      {"other-key", [](Update&) {}, kInstallNotTrusted,
       "the key that signed it is bound to other applications."},
      {"good", [](Update& u) { ++u.manifest[u.manifest.find("2099")]; }, kInstallNotTrusted,
       "no key of this build signed it."},
      {"expired", [](Update&) {}, kInstallNotTrusted, "it has expired."},
      {"good", [](Update& u) { u.record.platform = "mac"; }, kInstallNotTrusted,
       "it is for another platform."},
      {"good", [](Update& u) { u.record.version = MakeVersion(3, 0, 0, 0); }, kInstallNothing,
       "version 2.0.0.1 is not above the application's, 3.0.0.0"},
      {"good", [](Update& u) { u.manifest.clear(); }, kInstallDownloadFailed,
       "The manifest could not be fetched."},
      {"good", [](Update& u) { u.manifest.resize(kMaxManifestBytes + 1); }, kInstallNotTrusted,
       "it is too long."},
      {"good", [](Update& u) { u.file.back() ^= 1; }, kInstallWrongContent,
       "The file's SHA-256 is not the declared one."},
      {"good", [](Update& u) { u.file += '\0'; }, kInstallWrongContent,
       "The file is longer than declared."},
      {"good", [](Update& u) { u.file.clear(); }, kInstallWrongContent, ""},
      {"good", [](Update& u) { u.values["DistroMD5"] = std::string(32, '0'); },
       kInstallWrongContent, "The file's MD5 is not the declared one."},
      {"no-program", [](Update& u) { u.file = Prepared("no-program"); }, kInstallCannotStart, ""},
      {"good", [](Update& u) { u.values["DistroStarter"] = "bat"; }, kInstallUnknownStarter,
       "The starter is neither exe nor msi."},
      {"good", [](Update& u) { u.values["DistroUrl"] = "\\\\server\\share\\a.exe"; },
       kInstallBadAddress, "The address is refused: \\\\server\\share\\a.exe"},
      // During the download.
      {"good", [](Update& u) { u.happens = u.AddLibrary; }, kInstallNotTrusted,
       "The file is not alone in its folder."},
      {"good", [](Update& u) { u.happens = [&] { u.Remove(); }; }, kInstallNothing,
       "The application is removed."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.manifest + (": " + std::string(row.line)));
    const LogCapture log;
    Update update(row.manifest);
    row.change(update);
    EXPECT_EQ(update.Install(), row.want);
    EXPECT_TRUE(log.Has(row.line));
    EXPECT_FALSE(fs::exists(kRecord));
    EXPECT_TRUE(PrivateFolders().empty());
    EXPECT_EQ(ReadLocalRecord("app"), update.record);
  }
}

TEST(Install, AnotherServersCertificateIsRefused) {
  // The user trusts the tests' authority, in Wine's prefix.
  const std::string root = Prepared("root.der");
  HCERTSTORE const store =
      ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
  EXPECT_TRUE(::CertAddEncodedCertificateToStore(
      store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(root.data()),
      static_cast<DWORD>(root.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
  ::CertCloseStore(store, 0);
  for (const bool isItsOwn : {true, false}) {
    Update update("good");
    std::string url = NarrowUtf8(Setting(L"KUPDATE_HTTPS")) + "/update";
    if (!isItsOwn) url.replace(url.find("localhost"), 9, "127.0.0.1");
    update.values["DistroUrl"] = url;
    EXPECT_EQ(update.Install(), isItsOwn ? 7 : kInstallDownloadFailed);
  }
}

TEST(Install, AnIdOutsideOfTheDataFolderNamesNothing) {
  EXPECT_EQ(RunSilentUpdate("..\\x"), kInstallNothing);
}

// As openssl computes them.
TEST(Trust, KeysAreNamedByTheirFingerprints) {
  const std::string fingerprint = Prepared("publisher.fingerprint").substr(0, 16);
  const std::string key = PublicKey("publisher");
  EXPECT_EQ(Describe({{{key, {}}, {key, {"a", "b c"}}}}),
            "Updates need a manifest signed with one of these keys: " + fingerprint + ", " +
                fingerprint + " (a, b c).");
}

}  // namespace
