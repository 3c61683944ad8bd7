#include "testing/data_home.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>

#include "layout/folders.h"
#include "util/registry.h"
#include "util/system.h"
#include "util/text.h"

#ifdef _WIN32
#include <process.h>

#include "util/win/windows_lean.h"
#endif

namespace fs = std::filesystem;

namespace {

// Removed when the process ends.
struct TempFolder {
  const fs::path path =
      fs::temp_directory_path() / ("kupdate-test-" + std::to_string(std::random_device()()));
  TempFolder() { fs::create_directories(path); }
  ~TempFolder() { Remove(path); }
  static void Remove(const fs::path& folder) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
};

void RemoveData() {
  for (const std::string& folder :
       {GetUpdaterDataPath({}), NarrowUtf8(GetUpdaterLocalFolder({}, CreateFolder::kNo)),
        GetMakerFolder(), GetCommonMakerFolder()}) {
    TempFolder::Remove(NativePath(folder));
  }
  for (const wchar_t* key : {L"Software\\Krelix", L"Software\\AppDataLow\\Krelix"}) {
    JustUtil::RemoveValue(key, L"UICreated_" + LogonName());
  }
}

fs::path Made(const std::string& folder) {
  const fs::path path = NativePath(folder);
  fs::create_directories(path);
  return path;
}

}  // namespace

const fs::path& ProcessTempFolder() {
  static const TempFolder folder;
  return folder.path;
}

DataHome::DataHome() {
#ifdef _WIN32
  if (!std::getenv("KUPDATE_TEST_PREFIX")) {
    std::fputs("These tests empty the user's data folder: run them by the script 'test'.\n",
               stderr);
    std::abort();
  }
#else
  setenv("KUPDATE_HOME", ProcessTempFolder().c_str(), 1);
#endif
  RemoveData();
}

DataHome::~DataHome() { RemoveData(); }

fs::path DataHome::AppFolder(const std::string& appId) const {
  return Made(GetUpdaterDataPath(appId));
}
fs::path DataHome::File(const std::string& name) const { return Made(GetMakerFolder()) / name; }
fs::path DataHome::CommonFile(const std::string& name) const {
  return Made(GetCommonMakerFolder()) / name;
}

fs::path NativePath(std::string path) {
#ifndef _WIN32
  std::replace(path.begin(), path.end(), '\\', '/');
#endif
  return std::u8string(path.begin(), path.end());
}

#ifdef _WIN32
namespace {

// Wine's own calls make no links, so a tool of the host does, in the link's folder. Wine's "start"
// starts it, since Wine leaves the handles of such a process unset in the program that starts it.
void RunUnixTool(const std::wstring& tool, const wchar_t* option, const std::wstring& argument,
                 const fs::path& link) {
  const auto isThere = [&] {
    return ::GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES;
  };
  const bool wasThere = isThere();
  const fs::path here = fs::current_path();
  fs::current_path(link.parent_path());
  ::_wspawnlp(_P_WAIT, L"start", L"start", L"/b", L"/exec", (L"Z:\\bin\\" + tool).c_str(), option,
              argument.c_str(), link.filename().c_str(), nullptr);
  fs::current_path(here);
  for (int tries = 0; isThere() == wasThere; ++tries) {
    if (tries == 1000) throw std::runtime_error("links are made under Wine only");
    ::Sleep(5);
  }
}

}  // namespace

void LinkFolder(const fs::path& link, const fs::path& target) {
  RunUnixTool(L"ln", L"-sn", fs::relative(target, link.parent_path()).generic_wstring(), link);
}

void UnlinkFolder(const fs::path& link) { RunUnixTool(L"rm", L"-f", L"--", link); }
#else
void LinkFolder(const fs::path& link, const fs::path& target) {
  fs::create_directory_symlink(target, link);
}

void UnlinkFolder(const fs::path& link) { fs::remove(link); }
#endif

std::string ReadBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteBytes(const fs::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (line.ends_with('\r')) line.pop_back();
    lines.push_back(line);
  }
  return lines;
}
