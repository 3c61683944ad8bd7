// Downloads, private files, and the way from the recorded update to the installer's code, against a
// web server, with manifests that OpenSSL signed.
#include "util/win/windows_lean.h"

#include <aclapi.h>
#include <sddl.h>
#include <wincrypt.h>

#include <chrono>
#include <functional>
#include <map>

#include "appinfo/local_record.h"
#include "install/download.h"
#include "install/manifest.h"
#include "install/private_file.h"
#include "install/silent_install.h"
#include "install/silent_update.h"
#include "layout/folders.h"
#include "testing/raw_server.h"
#include "testing/transfer_service.h"
#include "testing/unit_test.h"
#include "update/upd_info.h"
#include "util/text.h"
#include "util/win/security.h"

namespace {

using testing_dll::Setting;

// --- downloads ---

constexpr std::uint64_t kLimit = 100'000;

std::string Ok(const std::string& headers) { return "HTTP/1.1 200 OK\r\n" + headers + "\r\n"; }
std::string Redirect(const std::string& location) {
  return "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + location + "\r\n\r\n";
}

DownloadOutcome Get(const std::string& url, DownloadRules rules = {kLimit}) {
  std::uint64_t taken = 0;
  return Download(url, rules, [&](auto piece) { return (taken += piece.size()) <= kLimit; });
}

TEST(Download, EveryAnswerHasItsOutcome) {
  using enum DownloadOutcome;
  const std::string whole = Ok("Content-Length: 3\r\n") + "abc",
                    close = Ok("Connection: close\r\n");
  const auto expect = [&](DownloadOutcome want, const std::string& answer, const char* line = "") {
    SCOPED_TRACE(answer.substr(0, 100) + line);
    const RawServer server(
        [&](const std::string& request) { return request.ends_with("/whole") ? whole : answer; });
    const LogCapture log;
    EXPECT_EQ(Get(server.Url("/")), want);
    EXPECT_TRUE(log.Has(line));
  };
  expect(kDone, whole);
  expect(kDone, close + "abc");
  expect(kDone, Ok("Content-Length: 100000\r\n") + std::string(kLimit, 'a'));
  expect(kDone, Redirect("/whole"));
  expect(kTooLong, Ok("Content-Length: 100001\r\n") + "a",
         "The server announces 100001 bytes, at most 100000 are expected.");
  expect(kTooLong, close + "...", "The server sends more than the expected 100000 bytes.");
  expect(kFailed, Ok("Content-Length: 100\r\n") + "a");
  expect(kFailed, "");
  expect(kFailed, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", "answers 404");
  expect(kFailed, "HTTP/1.1 206 Partial Content\r\nContent-Length: 1\r\n\r\na", "answers 206");
  expect(kFailed, Redirect("file:///C:/a"), "The redirection is not followed: file:///C:/a");
  expect(kFailed, Redirect("/"), "Too many redirections: http");
  const RawServer endless([&](const std::string&) { return close + "..."; });
  const auto none = [](std::string_view) { return false; };
  EXPECT_EQ(Download(endless.Url("/"), {~std::uint64_t{0}}, none), kNotTaken);
}

TEST(Download, NoServerMakesItLast) {
  const std::string ok = Ok("Content-Length: 40960\r\n"), enough(1024, 'x');
  const DownloadRules pace{kLimit, 60, 1}, end{kLimit, 1, 60};
  // Without a line the download is done.
  const auto expect = [](const char* line, DownloadRules rules, const std::string& head,
                         const std::string& drop) {
    SCOPED_TRACE(head + drop.substr(0, 1) + line);
    const RawServer server([&](const std::string&) { return head + "..."; }, drop, 50);
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Get(server.Url("/"), rules),
              *line ? DownloadOutcome::kFailed : DownloadOutcome::kDone);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_TRUE(log.Has(line));
  };
  expect("too slow: 0 bytes in 2 seconds.", pace, "", "");
  expect("too slow: 0 bytes in 2", pace, "HTTP/1.1 200 OK\r\n", "X: y\r\n");
  expect("too slow: 3 bytes in 1 seconds.", pace, ok + "abc", "");
  expect("too slow:", pace, ok, "x");
  expect("", pace, ok, enough);
  expect("too slow: given up after 1 seconds.", end, ok, enough);
}

// --- private files ---

// Lets everyone write to a sealed folder. Wine allows that to its owner, Windows to no user.
void Unseal(const fs::path& folder) {
  EXPECT_TRUE(::SetFileSecurityW(folder.c_str(), DACL_SECURITY_INFORMATION,
                                 DescriptorOf(L"D:(A;;FA;;;WD)").get()));
}

TEST(PrivateFile, NoProgramSwapsAHeldFile) {
  std::wstring folder;
  {
    const auto file = PrivateFile::Make(L".exe");
    ASSERT_TRUE(file);
    folder = file->Folder();
    ASSERT_TRUE(file->Append("ab") && file->Append("c"));
    EXPECT_EQ(ReadBytes(file->Path()), "");
    ASSERT_TRUE(file->Hold());
    EXPECT_TRUE(file->IsAlone());
    const std::wstring other = folder + L"other", path = file->Path();
    Unseal(folder);
    WriteBytes(other, "evil");
    EXPECT_FALSE(file->IsAlone());
    WriteBytes(path, "evil");
    EXPECT_FALSE(::MoveFileExW(other.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_FALSE(::MoveFileExW(path.c_str(), (other + L"2").c_str(), 0));
    EXPECT_FALSE(::DeleteFileW(path.c_str()));
    EXPECT_EQ(ReadBytes(path), "abc");
    EXPECT_EQ(file->Size(), 3u);
    EXPECT_EQ(file->Digest(DigestKind::kSha256),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(file->Digest(DigestKind::kMd5), "900150983cd24fb0d6963f7d28e17f72");
  }
  EXPECT_FALSE(fs::exists(folder));
}

TEST(PrivateFile, TheUserMayNotAddToItsFolder) {
  const auto file = PrivateFile::Make(L".exe");
  ASSERT_TRUE(file);
  for (std::wstring path : {file->Folder(), file->Path()}) {
    UniqueDescriptor descriptor;
    wchar_t* text = nullptr;
    ::GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, nullptr, nullptr, descriptor.put());
    ::ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor.get(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr);
    // Whatever Wine adds for the system, the user's entry no longer allows everything.
    const std::string rights = NarrowUtf8(text);
    EXPECT_NE(rights.find(";;;S-1-5-21-"), rights.npos) << rights;
    EXPECT_EQ(rights.find(";FA;;;S-1-5-21-"), rights.npos) << rights;
    ::LocalFree(text);
  }
}

TEST(RemoveInstallLeftovers, TakesUnusedFoldersAndFollowsNoLink) {
  const DataHome home;
  const fs::path precious = ProcessTempFolder() / "precious", here = fs::current_path();
  fs::create_directories(precious);
  WriteBytes(precious / "file", "x");
  const auto used = PrivateFile::Make(L".exe");
  auto left = PrivateFile::Make(L".msi");
  ASSERT_TRUE(used && left);
  const fs::path kept = fs::path(left->Folder()).parent_path(), below = kept / "below" / "it";
  left->Keep();
  left.reset();
  Unseal(kept);
  fs::create_directories(below);
  WriteBytes(below / "file", "x");
  ::SetFileAttributesW((below / "file").c_str(), FILE_ATTRIBUTE_READONLY);
  const fs::path base = kept.parent_path(), foreign = base / "not ours";
  fs::create_directories(foreign);
  const fs::path links[] = {base / std::string(32, 'a'), base / std::string(32, 'b') / "link"};
  for (const fs::path& link : links) {
    fs::create_directories(link.parent_path());
    LinkFolder(link, precious);
  }
  // A program that runs there holds its folder.
  for (const bool isHeld : {true, false}) {
    fs::current_path(isHeld ? kept : here);
    RemoveInstallLeftovers();
    EXPECT_EQ(fs::exists(below / "file"), isHeld);
    EXPECT_EQ(fs::exists(kept), isHeld);
  }
  EXPECT_TRUE(fs::exists(used->Path()) && fs::exists(foreign));
  EXPECT_EQ(ReadBytes(precious / "file"), "x");
  // Wine cannot remove links.
  for (const fs::path& link : links) UnlinkFolder(link);
}

TEST(RemoveInstallLeftovers, TakesNothingFromTheCurrentFolderWhereOursIsALink) {
  const DataHome home;
  const fs::path ours = GetUpdaterLocalFolder({}, CreateFolder::kYes) + L"Install";
  const fs::path here = fs::current_path(), elsewhere = ProcessTempFolder() / "elsewhere";
  const fs::path likeOurs = elsewhere / std::string(32, 'c');
  fs::create_directories(likeOurs);
  fs::remove_all(ours);
  LinkFolder(ours, elsewhere);
  fs::current_path(elsewhere);
  RemoveInstallLeftovers();
  fs::current_path(here);
  UnlinkFolder(ours);
  EXPECT_TRUE(fs::exists(likeOurs));
  EXPECT_FALSE(fs::exists(elsewhere / "install.lock"));
}

// --- installations ---

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
  for (const fs::path& path :
       fs::directory_iterator(GetUpdaterLocalFolder("Install", CreateFolder::kYes))) {
    if (fs::is_directory(path)) folders.push_back(path);
  }
  return folders;
}

// A published update, and a client that found it.
struct Update {
  const DataHome home;
  std::string manifest;
  std::string file = ReadBytes(Setting(L"KUPDATE_TEST_INSTALLER"));
  std::map<std::string, std::string> values = {
      {"VerMajor", "2"}, {"VerBuild", "1"}, {"DistroUrl", testing_dll::HttpUrl("update")}};
  LocalRecord record{MakeVersion(1, 0, 0, 0), "win", "", /*release=*/true, /*removed=*/false};
  InstallSettings settings{.trust = {}, .now = 1'800'000'000};
  std::vector<PublisherKey>& keys = settings.trust.publicKeys;
  std::function<void()> happens;  // when the file is asked for

  // The feed says what the manifest says. The publisher's key may sign for all applications.
  explicit Update(const std::string& name) : manifest(Prepared(name + ".sig")) {
    Manifest parsed;
    EXPECT_EQ(ParseManifest(manifest, &parsed), "");
    const bool isMsi = parsed.starter == Starter::kMsi;
    if (isMsi) values["DistroStarter"] = "msi";
    values[isMsi ? "MSIArgs" : "DistroArgs"] = parsed.args;
    keys = {{"no key", {}}, {PublicKey("other"), {"nothing"}}, {PublicKey("publisher"), {}}};
  }

  int Install() {
    testing_dll::Publish("update", file);
    testing_dll::Publish("update.sig", manifest);
    if (manifest.empty()) fs::remove(fs::path(Setting(L"KUPDATE_WWW")) / "update.sig");
    const RawServer own([this](const std::string& request) {
      const bool isFile = !request.ends_with(".sig");
      if (isFile) happens();
      const std::string& content = isFile ? file : manifest;
      return Ok("Content-Length: " + std::to_string(content.size()) + "\r\n") + content;
    });
    if (happens) values["DistroUrl"] = own.Url("/update");
    fs::remove(kRecord);
    WriteBytes(home.AppFolder("app") / "appinfo.xml", "<appinfo><VerMajor>1</VerMajor></appinfo>");
    for (const auto& [key, value] : values) TUpdInfo("app").Write(key, value);
    ChangeLocalRecord("app", [this](LocalRecord& known) { known = record; });
    return InstallUpdate("app", settings);
  }

  void AddLibrary() const {
    Unseal(PrivateFolders().front());
    WriteBytes(PrivateFolders().front() / "version.dll", "evil");
  }
  void Remove() {
    record.removed = true;
    ChangeLocalRecord("app", [](LocalRecord& known) { known.removed = true; });
  }
};

TEST(Install, ThePublishersFileIsRunAsItDeclares) {
  const auto expect = [](const char* manifest, unsigned code, const std::string& arguments,
                         bool isInstalled) {
    SCOPED_TRACE(manifest);
    Update update(manifest);
    update.keys.back().apps = {"other", "app"};
    EXPECT_EQ(update.Install(), static_cast<int>(code));
    const std::string line = ReadBytes(kRecord);
    EXPECT_TRUE(line.starts_with("\"C:\\users\\")) << line;
    EXPECT_TRUE(line.ends_with(".exe\" /record=C:\\kupdate-record.txt" + arguments)) << line;
    EXPECT_TRUE(PrivateFolders().empty());
    if (isInstalled) update.record.version = MakeVersion(2, 0, 0, 1);
    EXPECT_EQ(ReadLocalRecord("app"), update.record);
  };
  expect("good", 7, " /code=7 \"a b\"", false);
  expect("restart", 3010, " /code=3010", true);
  expect("crash", 0xC0000005, " /crash", false);
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
  using Change = void(Update&);
  const auto expect = [](int want, const char* line, Change* change,
                         const char* manifest = "good") {
    SCOPED_TRACE(manifest + (": " + std::string(line)));
    const LogCapture log;
    Update update(manifest);
    if (change) change(update);
    EXPECT_EQ(update.Install(), want);
    EXPECT_TRUE(log.Has(line));
    EXPECT_FALSE(fs::exists(kRecord) || !PrivateFolders().empty());
    EXPECT_EQ(ReadLocalRecord("app"), update.record);
  };
  const int untrusted = kInstallNotTrusted, wrong = kInstallWrongContent;
  expect(untrusted, "this executor trusts no publisher yet.", [](Update& u) { u.keys.clear(); });
  expect(untrusted, "no key of this executor signed it.", [](Update& u) { u.keys.pop_back(); });
  expect(untrusted, "no key of this executor signed it.",
         [](Update& u) { ++u.manifest[u.manifest.find("2099")]; });
  expect(untrusted, "is bound to other applications.", nullptr, "other-key");
  expect(untrusted, "it has expired.", nullptr, "expired");
  expect(untrusted, "for another platform.", [](Update& u) { u.record.platform = "mac"; });
  expect(untrusted, "too long.", [](Update& u) { u.manifest.resize(kMaxManifestBytes + 1); });
  expect(wrong, "SHA-256 is not the declared one.", [](Update& u) { u.file.back() ^= 1; });
  expect(wrong, "The file is longer than declared.", [](Update& u) { u.file += '\0'; });
  expect(wrong, "The file has 0 bytes,", [](Update& u) { u.file.clear(); });
  expect(wrong, "The file's MD5 is not the declared one.",
         [](Update& u) { u.values["DistroMD5"] = std::string(32, '0'); });
  expect(kInstallNothing, "version 2.0.0.1 is not above the application's, 3.0.0.0",
         [](Update& u) { u.record.version = MakeVersion(3, 0, 0, 0); });
  expect(kInstallDownloadFailed, "could not be fetched.", [](Update& u) { u.manifest.clear(); });
  expect(
      kInstallCannotStart, "", [](Update& u) { u.file = Prepared("no-program"); }, "no-program");
  expect(kInstallUnknownStarter, "The starter is neither exe nor msi.",
         [](Update& u) { u.values["DistroStarter"] = "bat"; });
  expect(kInstallBadAddress, "The address is refused: \\\\server\\share\\a.exe",
         [](Update& u) { u.values["DistroUrl"] = "\\\\server\\share\\a.exe"; });
  // During the download.
  expect(untrusted, "not alone in its folder.",
         [](Update& u) { u.happens = [&] { u.AddLibrary(); }; });
  expect(kInstallNothing, "is removed.", [](Update& u) { u.happens = [&] { u.Remove(); }; });
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
  const std::string name = Prepared("publisher.fingerprint").substr(0, 16);
  const std::string key = PublicKey("publisher");
  EXPECT_EQ(Describe({"", {{key, {}}, {key, {"a", "b c"}}}}),
            "Updates need a manifest signed with one of these keys: " + name + ", " + name +
                " (a, b c).");
}

}  // namespace
