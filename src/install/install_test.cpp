// From the recorded update to the installer's code, against a web server, with manifests that
// OpenSSL signed.
#include <gtest/gtest.h>

#include "util/win/windows_lean.h"

#include <wincrypt.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <vector>

#include "install/manifest.h"
#include "install/silent_install.h"
#include "install/silent_update.h"
#include "testing/data_home.h"
#include "testing/log_capture.h"
#include "testing/transfer_service.h"
#include "util/folders.h"
#include "util/text.h"

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

std::size_t PrivateFolderCount() {
  const fs::path base = GetLocalAppDataFolder(L"Krelix\\Updater\\Install", CreateFolder::kYes);
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(base), {}));
}

// Whether a line of the log begins and ends like that.
bool Has(const LogCapture& log, std::string_view begin, std::string_view end = {}) {
  const std::vector<std::string> lines = log.Lines();
  return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.starts_with(begin) && line.ends_with(end);
  });
}

// A published update and the state files of a client that found it.
struct Update {
  std::string manifest;
  std::string file = ReadBytes(Setting(L"KUPDATE_TEST_INSTALLER"));
  std::map<std::string, std::string> values = {{"VerMajor", "2"}, {"VerBuild", "1"}};
  InstallSettings settings;

  // The feed says what the manifest says.
  explicit Update(const std::string& name) : manifest(Prepared(name + ".sig")) {
    Manifest parsed;
    EXPECT_EQ(ParseManifest(manifest, &parsed), "");
    values["DistroUrl"] = testing_dll::HttpUrl("update");
    const bool isMsi = parsed.starter == Starter::kMsi;
    if (isMsi) values["DistroStarter"] = "msi";
    values[isMsi ? "MSIArgs" : "DistroArgs"] = parsed.args;
    settings.now = kNow;
    settings.trust.publicKeys = {PublicKey("publisher")};
  }

  int Install() const {
    const DataHome home;
    testing_dll::Publish("update", file);
    testing_dll::Publish("update.sig", manifest);
    if (manifest.empty()) fs::remove(fs::path(Setting(L"KUPDATE_WWW")) / "update.sig");
    fs::remove(kRecord);
    std::string xml = "<appinfo>";
    for (const auto& [key, value] : values) {
      xml += "<" + key + "><![CDATA[" + value + "]]></" + key + ">";
    }
    WriteBytes(home.AppFolder("app") / "updinfo.xml", xml + "</appinfo>");
    WriteBytes(home.AppFolder("app") / "appinfo.xml", "<appinfo><VerMajor>1</VerMajor></appinfo>");
    return InstallUpdate("app", settings);
  }
};

TEST(Install, ThePublishersFileIsRunAsItDeclares) {
  const struct {
    const char* label;
    unsigned code;
    std::string arguments;  // as they stand in the manifest
  } rows[] = {{"good", 7, " /code=7 \"a b\""},
              {"restart", 3010, " /code=3010"},
              {"crash", 0xC0000005, " /crash"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const std::size_t folders = PrivateFolderCount();
    Update update(row.label);
    update.settings.trust.publicKeys = {"no key", PublicKey("other"), PublicKey("publisher")};
    EXPECT_EQ(update.Install(), static_cast<int>(row.code));
    const std::string line = ReadBytes(kRecord);
    EXPECT_TRUE(line.starts_with("\"C:\\users\\")) << line;
    EXPECT_TRUE(line.ends_with(".exe\" /record=C:\\kupdate-record.txt" + row.arguments)) << line;
    EXPECT_EQ(PrivateFolderCount(), folders);
  }
}

TEST(Install, MsiIsOpenedByTheSystemsInstaller) {
  const LogCapture log;
  EXPECT_GT(Update("msi").Install(), 0);
  EXPECT_TRUE(
      Has(log, "I:RunInstaller: Run: C:\\windows\\system32\\msiexec.exe /i \"C:", ".msi\" /qn"))
      << testing::PrintToString(log.Lines());
}

TEST(Install, AnInstallerThatGoesOnIsLeftAlone) {
  const LogCapture log;
  const std::size_t folders = PrivateFolderCount();
  Update update("long");
  update.settings.installerLimitSeconds = 0;
  EXPECT_EQ(update.Install(), kInstallStillRunning);
  EXPECT_TRUE(log.Has("E:RunInstaller: The installer is still running after 0 seconds."));
  EXPECT_EQ(PrivateFolderCount(), folders + 1);
}

TEST(Install, WhatItsPublisherDoesNotVouchForIsRefused) {
  const auto nothing = [](Update&) {};
  const struct {
    const char* label;
    const char* manifest;
    void (*change)(Update&);
    int want;
    const char* line;
  } rows[] = {
      {"no trust", "good", [](Update& u) { u.settings.trust = {}; }, kInstallNotTrusted,
       "Expect: No update is ever run: this build knows neither a publisher's key nor a "
       "publisher's name."},
      {"other key", "other-key", nothing, kInstallNotTrusted,
       "Refuse: The manifest is refused: no key of this build signed it."},
      {"a digit", "good", [](Update& u) { ++u.manifest[u.manifest.find("2099")]; },
       kInstallNotTrusted, "Refuse: The manifest is refused: no key of this build signed it."},
      {"other application", "other-app", nothing, kInstallNotTrusted,
       "Refuse: The manifest is refused: it is for another application."},
      {"older version replayed", "older", nothing, kInstallNotTrusted,
       "Refuse: The manifest is refused: it is for another version."},
      {"expired", "expired", nothing, kInstallNotTrusted,
       "Refuse: The manifest is refused: it has expired."},
      {"no manifest", "good", [](Update& u) { u.manifest.clear(); }, kInstallDownloadFailed,
       "ExpectByManifest: The manifest could not be fetched."},
      {"long manifest", "good", [](Update& u) { u.manifest.resize(kMaxManifestBytes + 1); },
       kInstallNotTrusted, "Refuse: The manifest is refused: it is too long."},
      {"last byte", "good", [](Update& u) { u.file.back() ^= 1; }, kInstallWrongContent,
       "Verify: The file's SHA-256 is not the declared one."},
      {"longer", "good", [](Update& u) { u.file += '\0'; }, kInstallWrongContent,
       "Fetch: The file is longer than declared."},
      {"empty", "good", [](Update& u) { u.file.clear(); }, kInstallWrongContent, nullptr},
      {"MD5", "good", [](Update& u) { u.values["DistroMD5"] = std::string(32, '0'); },
       kInstallWrongContent, "Verify: The file's MD5 is not the declared one."},
      {"no program", "no-program", [](Update& u) { u.file = Prepared("no-program"); },
       kInstallCannotStart, nullptr},
      {"starter", "good", [](Update& u) { u.values["DistroStarter"] = "bat"; },
       kInstallUnknownStarter, "Expect: The starter is neither exe nor msi."},
      {"share", "good", [](Update& u) { u.values["DistroUrl"] = "\\\\server\\share\\a.exe"; },
       kInstallBadAddress, "Expect: The address is refused: \\\\server\\share\\a.exe"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const std::size_t folders = PrivateFolderCount();
    const LogCapture log;
    Update update(row.manifest);
    row.change(update);
    EXPECT_EQ(update.Install(), row.want);
    EXPECT_TRUE(!row.line || log.Has(std::string("E:") + row.line))
        << testing::PrintToString(log.Lines());
    EXPECT_FALSE(fs::exists(kRecord));
    EXPECT_EQ(PrivateFolderCount(), folders);
  }
}

// Makes the test's authority one that the user trusts, in Wine's prefix.
void TrustTestAuthority() {
  const std::string certificate = Prepared("root.der");
  HCERTSTORE const store =
      ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
  EXPECT_TRUE(::CertAddEncodedCertificateToStore(
      store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(certificate.data()),
      static_cast<DWORD>(certificate.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
  ::CertCloseStore(store, 0);
}

TEST(Install, WithoutAKeyOnlyASignedProgramOverHttpsIsRun) {
  TrustTestAuthority();
  const struct {
    const char* label;
    void (*change)(Update&);
    int want;
    const char* line;  // how it begins
  } rows[] = {
      {"http", [](Update& u) { u.values["DistroUrl"] = "http://localhost/a"; }, kInstallBadAddress,
       "E:ExpectByOffer: Without a publisher's key only https is fetched:"},
      {"package", [](Update& u) { u.values["DistroStarter"] = "msi"; }, kInstallNotTrusted,
       "E:ExpectByOffer: Without a publisher's key only programs are run."},
      {"arguments", [](Update& u) { u.values["DistroArgs"] = "/record=C:\\a"; }, kInstallNotTrusted,
       "E:ExpectByOffer: Without a publisher's key only plain switches are passed on:"},
      {"no size", [](Update& u) { u.values["DistroSize"] = ""; }, kInstallWrongContent,
       "E:ExpectByOffer: Without a publisher's key the feed must declare a size."},
      {"another server's certificate",
       [](Update& u) { u.values["DistroUrl"].replace(8, 9, "127.0.0.1"); }, kInstallDownloadFailed,
       "E:Fetch: The file could not be fetched."},
      {"its publisher's", [](Update&) {}, 7, "I:RunInstaller: The installer ended."},
      {"no signature", [](Update& u) { u.file.resize(u.file.size() - 512); }, kInstallNotTrusted,
       "E:IsSignedBy: The file's Authenticode signature does not verify."},
      {"a byte", [](Update& u) { u.file[u.file.size() / 2] ^= 1; }, kInstallNotTrusted,
       "E:IsSignedBy: The file's Authenticode signature does not verify."},
      {"name", [](Update& u) { u.settings.trust.publisherName = "Test"; }, kInstallNotTrusted,
       "E:IsSignedBy: The file is signed by Test publisher and not by Test."},
      {"version", [](Update& u) { u.values["VerBuild"] = "1"; }, kInstallNotTrusted,
       "E:IsVouchedByItself: The file's own version is 2.0.0.0 and not 2.0.0.1"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const LogCapture log;
    Update update("good");
    update.file = Prepared("authenticode.exe");
    update.values["DistroUrl"] = NarrowUtf8(Setting(L"KUPDATE_HTTPS")) + "/update";
    update.values["DistroArgs"] = "/code=7";
    update.values["VerBuild"] = "0";
    update.values["DistroSize"] = "file";
    update.settings.trust = {{}, "Test publisher"};
    row.change(update);
    if (update.values["DistroSize"] == "file") {
      update.values["DistroSize"] = std::to_string(update.file.size());
    }
    EXPECT_EQ(update.Install(), row.want);
    EXPECT_TRUE(Has(log, row.line)) << testing::PrintToString(log.Lines());
  }
}

TEST(Install, AnIdOutsideOfTheDataFolderNamesNothing) {
  EXPECT_EQ(RunSilentUpdate("..\\x"), kInstallNothing);
}

}  // namespace
