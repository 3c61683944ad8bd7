#include "util/win/unique.h"

#include <sddl.h>

#include <stdexcept>

#include "proof/steps/steps.h"

namespace {

// The files that an operation changes; they are hindered one at a time.
std::vector<fs::path> FilesOf(const Passage& passage) {
  std::vector<fs::path> paths;
  for (const auto& [path, bytes] : passage.before) {
    const auto after = passage.after.find(path);
    const bool changes = after == passage.after.end() || after->second != bytes;
    if (path.has_filename() && changes) paths.push_back(path);
  }
  return paths;
}

void Check(bool isHindered) {
  if (!isHindered) throw std::runtime_error("a file cannot be hindered");
}

Hindrance Held(const fs::path& path, DWORD share) {
  static UniqueFile holder;
  const auto hold = [=] {
    holder = UniqueFile(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    Check(static_cast<bool>(holder));
  };
  return {path.string() + " held with share mode " + std::to_string(share), hold,
          [] { holder.reset(); }};
}

// Gives the rights to the file or folder, "FA": all, "FRFX": all but writing.
void Allow(const fs::path& path, const std::wstring& rights) {
  const std::wstring text = L"D:P(A;;" + rights + L";;;WD)";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  Check(::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                               &descriptor, nullptr));
  const BOOL isSet = ::SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, descriptor);
  ::LocalFree(descriptor);
  Check(isSet);
}

Hindrance ReadOnly(const fs::path& path) {
  const auto set = [path](DWORD attributes) { ::SetFileAttributesW(path.c_str(), attributes); };
  return {path.string() + " read-only", [=] { set(FILE_ATTRIBUTE_READONLY); },
          [=] { set(FILE_ATTRIBUTE_NORMAL); }};
}

Hindrance Denied(const std::vector<fs::path>& paths) {
  const auto allow = [paths](const wchar_t* rights) {
    for (const fs::path& path : paths) Allow(path, rights);
  };
  return {paths.front().string() + " denied", [=] { allow(L"FRFX"); }, [=] { allow(L"FA"); }};
}

}  // namespace

std::vector<Hindrance> HindrancesOf(const std::string& mode, int, const Passage& passage) {
  std::vector<Hindrance> all;
  for (const fs::path& path : FilesOf(passage)) {
    const fs::path folder = path.parent_path();
    if (mode == "denied")
      all.insert(all.end(), {ReadOnly(path), Denied({folder}), Denied({folder, path})});
    if (mode != "held") continue;
    for (const DWORD share : {0, FILE_SHARE_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE}) {
      all.push_back(Held(path, share));
    }
  }
  return all;
}

int RunApart(const std::function<void()>& work) {
  work();
  return 0;
}
