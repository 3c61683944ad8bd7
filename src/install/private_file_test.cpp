#include "install/private_file.h"
#include "util/win/windows_lean.h"

#include <aclapi.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "testing/data_home.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSha256OfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

void SetCreationTime(const fs::path& path, const FILETIME& time) {
  HANDLE const handle =
      ::CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  EXPECT_TRUE(::SetFileTime(handle, &time, nullptr, &time));
  ::CloseHandle(handle);
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
    const std::wstring other = file->Folder() + L"other";
    WriteBytes(other, "evil");
    WriteBytes(file->Path(), "evil");
    EXPECT_FALSE(::MoveFileExW(other.c_str(), file->Path().c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_FALSE(::MoveFileExW(file->Path().c_str(), (other + L"2").c_str(), 0));
    EXPECT_FALSE(::DeleteFileW(file->Path().c_str()));
    EXPECT_EQ(ReadBytes(file->Path()), "abc");
    EXPECT_EQ(file->Size(), 3u);
    EXPECT_EQ(file->Digest(DigestKind::kSha256), kSha256OfAbc);
    EXPECT_EQ(file->Digest(DigestKind::kMd5), "900150983cd24fb0d6963f7d28e17f72");
    ::DeleteFileW(other.c_str());
  }
  EXPECT_FALSE(fs::exists(folder));
}

TEST(PrivateFile, NamesCannotBeForeseen) {
  const auto one = PrivateFile::Make(L".exe");
  const auto other = PrivateFile::Make(L".exe");
  ASSERT_TRUE(one && other);
  EXPECT_NE(one->Folder(), other->Folder());
  EXPECT_NE(fs::path(one->Path()).filename(), fs::path(other->Path()).filename());
}

TEST(PrivateFile, OnlyTheUserMayWrite) {
  const auto file = PrivateFile::Make(L".exe");
  ASSERT_TRUE(file);
  ACL* list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetNamedSecurityInfoW(const_cast<wchar_t*>(file->Folder().c_str()), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                                    &descriptor),
            DWORD{ERROR_SUCCESS});
  alignas(SID) char everyone[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof everyone;
  ::CreateWellKnownSid(WinWorldSid, nullptr, everyone, &size);
  ASSERT_TRUE(list);
  for (DWORD i = 0; i < list->AceCount; ++i) {
    void* ace = nullptr;
    ::GetAce(list, i, &ace);
    const auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
    const auto* const sid = reinterpret_cast<const char*>(&allowed->SidStart);
    EXPECT_FALSE(::EqualSid(const_cast<char*>(sid), everyone)) << allowed->Mask;
  }
  ::LocalFree(descriptor);
}

TEST(PrivateFile, StaysWhenItIsStillInUse) {
  std::wstring path;
  {
    const auto file = PrivateFile::Make(L".msi");
    ASSERT_TRUE(file);
    path = file->Path();
    file->Keep();
  }
  EXPECT_TRUE(fs::exists(path));
  // The next run finds it too fresh to be a leftover; a later one does not.
  PrivateFile::Make(L".exe");
  EXPECT_TRUE(fs::exists(path));
  const fs::path folder = fs::path(path).parent_path();
  SetCreationTime(path, FILETIME{0, 0x01D00000});
  SetCreationTime(folder, FILETIME{0, 0x01D00000});
  PrivateFile::Make(L".exe");
  EXPECT_FALSE(fs::exists(folder));
}

}  // namespace
