#include "util/win/unique.h"

#include <sddl.h>

#include <stdexcept>

#include "proof/steps/steps.h"

const char kSystem[] = "Windows: ";

namespace {

namespace fs = std::filesystem;

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

Hindrance Held(const fs::path& path, const char* label, DWORD share) {
  static UniqueFile holder;
  const auto hold = [=] {
    holder = UniqueFile(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    Check(static_cast<bool>(holder));
  };
  return {path.string() + " held, shared for " + label, hold, [] { holder.reset(); }};
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
  return {path.string() + " read-only",
          [=] { ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY); },
          [=] { ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL); }};
}

// The folder is the last to be denied and the first to be allowed: it is the way to the file.
Hindrance Denied(const fs::path& path, bool withFile) {
  const fs::path folder = path.parent_path();
  return {"folder of " + path.string() + (withFile ? " and itself denied" : " denied"),
          [=] {
            if (withFile) Allow(path, L"FRFX");
            Allow(folder, L"FRFX");
          },
          [=] {
            Allow(folder, L"FA");
            if (withFile) Allow(path, L"FA");
          }};
}

}  // namespace

std::vector<Hindrance> HindrancesOf(const std::string& mode, const Passage& passage) {
  std::vector<Hindrance> all;
  for (const fs::path& path : FilesOf(passage)) {
    if (mode == "denied") {
      all.insert(all.end(), {ReadOnly(path), Denied(path, false), Denied(path, true)});
    } else if (mode == "held") {
      all.insert(all.end(),
                 {Held(path, "nothing", 0), Held(path, "reading", FILE_SHARE_READ),
                  Held(path, "reading and deleting", FILE_SHARE_READ | FILE_SHARE_DELETE),
                  Held(path, "reading and writing", FILE_SHARE_READ | FILE_SHARE_WRITE)});
    }
  }
  return all;
}

int RunApart(const Operation& operation) {
  Run(operation);
  return 0;
}
