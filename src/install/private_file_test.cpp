#include "install/private_file.h"
#include "util/win/windows_lean.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <filesystem>

#include "layout/folders.h"
#include "testing/data_home.h"
#include "util/text.h"
#include "util/win/security.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSha256OfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

// Lets everyone write to a sealed folder. Wine allows its owner that, Windows nobody.
void Unseal(const fs::path& folder) {
  EXPECT_TRUE(::SetFileSecurityW(folder.c_str(), DACL_SECURITY_INFORMATION,
                                 DescriptorOf(L"D:(A;;FA;;;WD)").get()));
}

TEST(PrivateFile, NobodySwapsWhatIsHeld) {
  std::string folder;
  {
    const auto file = PrivateFile::Make(L".exe");
    ASSERT_TRUE(file);
    folder = fs::path(file->Folder()).string();
    ASSERT_TRUE(file->Append("ab") && file->Append("c"));
    EXPECT_EQ(ReadBytes(file->Path()), "");
    ASSERT_TRUE(file->Hold());
    EXPECT_TRUE(file->IsAlone());
    const std::wstring other = file->Folder() + L"other";
    Unseal(file->Folder());
    WriteBytes(other, "evil");
    EXPECT_FALSE(file->IsAlone());
    WriteBytes(file->Path(), "evil");
    EXPECT_FALSE(::MoveFileExW(other.c_str(), file->Path().c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_FALSE(::MoveFileExW(file->Path().c_str(), (other + L"2").c_str(), 0));
    EXPECT_FALSE(::DeleteFileW(file->Path().c_str()));
    EXPECT_EQ(ReadBytes(file->Path()), "abc");
    EXPECT_EQ(file->Size(), 3u);
    EXPECT_EQ(file->Digest(DigestKind::kSha256), kSha256OfAbc);
    EXPECT_EQ(file->Digest(DigestKind::kMd5), "900150983cd24fb0d6963f7d28e17f72");
  }
  EXPECT_FALSE(fs::exists(folder));
}

TEST(PrivateFile, NobodyMayAddToItsFolder) {
  const auto file = PrivateFile::Make(L".exe");
  ASSERT_TRUE(file);
  for (const std::wstring& path : {file->Folder(), file->Path()}) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    ::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, nullptr, nullptr, &descriptor);
    ::ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr);
    // Whatever Wine adds for the system, the user's entry is not the one for everything any more.
    const std::string rights = NarrowUtf8(text);
    EXPECT_NE(rights.find(";;;S-1-5-21-"), rights.npos) << rights;
    EXPECT_EQ(rights.find(";FA;;;S-1-5-21-"), rights.npos) << rights;
    ::LocalFree(text);
    ::LocalFree(descriptor);
  }
}

TEST(RemoveInstallLeftovers, TakesWhatNobodyUsesAndFollowsNoLink) {
  const DataHome home;
  const fs::path precious = ProcessTempFolder() / "precious";
  fs::create_directories(precious);
  WriteBytes(precious / "file", "x");
  const auto used = PrivateFile::Make(L".exe");
  ASSERT_TRUE(used);
  fs::path kept;
  {
    const auto file = PrivateFile::Make(L".msi");
    kept = file->Folder();
    file->Keep();
  }
  const fs::path base = kept.parent_path().parent_path(), below = kept / "below" / "it";
  Unseal(kept);
  fs::create_directories(below);
  WriteBytes(below / "file", "x");
  ::SetFileAttributesW((below / "file").c_str(), FILE_ATTRIBUTE_READONLY);
  fs::create_directories(base / "not ours");
  const fs::path links[] = {base / std::string(32, 'a'), base / std::string(32, 'b') / "link"};
  for (const fs::path& link : links) {
    fs::create_directories(link.parent_path());
    LinkFolder(link, precious);
  }
  // A program that runs there holds its folder.
  const fs::path here = fs::current_path();
  for (const bool isHeld : {true, false}) {
    fs::current_path(isHeld ? kept : here);
    RemoveInstallLeftovers();
    EXPECT_EQ(fs::exists(below / "file"), isHeld);
    EXPECT_EQ(fs::exists(kept), isHeld);
  }
  EXPECT_TRUE(fs::exists(used->Path()));
  EXPECT_TRUE(fs::exists(base / "not ours"));
  EXPECT_EQ(ReadBytes(precious / "file"), "x");
  // Wine cannot remove links.
  for (const fs::path& link : links) UnlinkFolder(link);
}

TEST(RemoveInstallLeftovers, TakesNothingFromTheCurrentFolderWhereOursIsALink) {
  const DataHome home;
  const fs::path updater = fs::path(GetUpdaterLocalFolder({}, CreateFolder::kYes)).parent_path();
  const fs::path here = fs::current_path();
  const fs::path elsewhere = ProcessTempFolder() / "elsewhere";
  const fs::path likeOurs = elsewhere / std::string(32, 'c');
  fs::create_directories(likeOurs);
  fs::remove_all(updater / "Install");
  LinkFolder(updater / "Install", elsewhere);
  fs::current_path(elsewhere);
  RemoveInstallLeftovers();
  fs::current_path(here);
  UnlinkFolder(updater / "Install");
  EXPECT_TRUE(fs::exists(likeOurs));
  EXPECT_FALSE(fs::exists(elsewhere / "install.lock"));
}

}  // namespace
