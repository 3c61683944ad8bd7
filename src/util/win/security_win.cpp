#include "util/win/security.h"

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <iterator>

#include "util/folders.h"
#include "util/system.h"

namespace {

constexpr ACCESS_MASK kReplace = DELETE | WRITE_DAC | WRITE_OWNER | FILE_DELETE_CHILD;
// New files beside the program count too: it would load them, or they would send it elsewhere. The
// right to write attributes is enough to turn a file into a link.
constexpr ACCESS_MASK kChange =
    kReplace | FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA;

// Processes that are not elevated hold none of these.
bool IsTrusted(PSID sid) {
  static constexpr const wchar_t* kTrusted[] = {
      L"S-1-5-18",                                                        // the system
      L"S-1-5-32-544",                                                    // administrators
      L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",  // its installer
      L"S-1-3-4"};  // the owner's rights; the owner is judged apart
  wchar_t* text = nullptr;
  if (!sid || !::ConvertSidToStringSidW(sid, &text)) return false;
  const bool isTrusted = std::any_of(std::begin(kTrusted), std::end(kTrusted),
                                     [&](std::wstring_view known) { return known == text; });
  ::LocalFree(text);
  return isTrusted;
}

// The rights that an entry gives to a user who is not trusted. Entries that deny count for nothing,
// because they may stand in an order in which they have no effect.
ACCESS_MASK GivenToOthers(ACE_HEADER* header) {
  constexpr ACCESS_MASK kEverything = ~ACCESS_MASK{0};
  // Such an entry is for new files below and gives nothing here.
  if (header->AceFlags & INHERIT_ONLY_ACE) return 0;
  switch (header->AceType) {
    case ACCESS_DENIED_ACE_TYPE:
    case ACCESS_DENIED_CALLBACK_ACE_TYPE:
      return 0;
    case ACCESS_ALLOWED_ACE_TYPE:
    case ACCESS_ALLOWED_CALLBACK_ACE_TYPE:
      break;
    default:
      return kEverything;
  }
  auto* const allowed = reinterpret_cast<ACCESS_ALLOWED_ACE*>(header);
  if (IsTrusted(&allowed->SidStart)) return 0;
  GENERIC_MAPPING ofFiles = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                             FILE_ALL_ACCESS};
  DWORD mask = allowed->Mask;
  ::MapGenericMask(&mask, &ofFiles);
  return mask;
}

bool IsReplaceable(const PathPart& part) {
  const UniqueFile file(
      ::CreateFileW(part.path.c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  BY_HANDLE_FILE_INFORMATION information;
  UniqueDescriptor descriptor;
  return !file || !::GetFileInformationByHandle(file.get(), &information) ||
         (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ||
         ::GetSecurityInfo(file.get(), SE_FILE_OBJECT,
                           OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr, nullptr,
                           nullptr, nullptr, descriptor.put()) != ERROR_SUCCESS ||
         LetsOthersReplace(descriptor.get(), part.part);
}

}  // namespace

UniqueDescriptor DescriptorOf(const wchar_t* text) {
  UniqueDescriptor descriptor;
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, descriptor.put(),
                                                         nullptr);
  return descriptor;
}

std::vector<PathPart> PartsOf(std::wstring program) {
  constexpr std::size_t kRootChars = 3;
  std::replace(program.begin(), program.end(), L'/', L'\\');
  // A colon further behind names a stream of a file, and ".." leads elsewhere.
  const bool isPlain = program.size() > kRootChars && program.compare(1, 2, L":\\") == 0 &&
                       program.back() != L'\\' && program.find(L':', 2) == program.npos &&
                       !HasParentComponent(program);
  std::vector<PathPart> parts;
  if (!isPlain) return parts;
  parts.push_back({program, Part::kProgram});
  for (std::size_t end; (end = program.rfind(L'\\')) >= kRootChars;) {
    program.resize(end);
    parts.push_back({program, parts.size() == 1 ? Part::kItsFolder : Part::kFolderAbove});
  }
  program.resize(kRootChars);
  parts.push_back({program, parts.size() == 1 ? Part::kItsFolder : Part::kFolderAbove});
  return parts;
}

bool LetsOthersReplace(PSECURITY_DESCRIPTOR descriptor, Part part) {
  PSID owner = nullptr;
  PACL list = nullptr;
  BOOL isDefault = FALSE;
  BOOL isThere = FALSE;
  // A descriptor without a list lets all users do everything.
  if (!descriptor || !::GetSecurityDescriptorOwner(descriptor, &owner, &isDefault) ||
      !IsTrusted(owner) || !::GetSecurityDescriptorDacl(descriptor, &isThere, &list, &isDefault) ||
      !isThere || !list) {
    return true;
  }
  // New files in a folder further above are not loaded; only replacing a part of the path counts.
  const ACCESS_MASK matters = part == Part::kFolderAbove ? kReplace : kChange;
  for (DWORD index = 0; index < list->AceCount; ++index) {
    void* entry = nullptr;
    if (!::GetAce(list, index, &entry) ||
        (GivenToOthers(static_cast<ACE_HEADER*>(entry)) & matters) != 0) {
      return true;
    }
  }
  return false;
}

bool CanOthersReplace(const std::wstring& path) {
  const std::vector<PathPart> parts = PartsOf(path);
  // On other kinds of drives no rights are kept, or another machine judges them.
  return parts.empty() || ::GetDriveTypeW(parts.back().path.c_str()) != DRIVE_FIXED ||
         std::any_of(parts.begin(), parts.end(), IsReplaceable);
}
