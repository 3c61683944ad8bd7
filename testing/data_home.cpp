#include "testing/data_home.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "layout/folders.h"
#include "util/text.h"

#ifdef _WIN32
#include "util/handle.h"
#include "util/win/windows_lean.h"
#endif

namespace fs = std::filesystem;

namespace {

// Removed when the process ends.
struct TempFolder {
  const fs::path path =
      fs::temp_directory_path() / ("kupdate-test-" + std::to_string(std::random_device()()));
  TempFolder() { fs::create_directories(path); }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
};

void RemoveData() {
  std::error_code ignored;
  fs::remove_all(NativePath(GetUpdaterDataPath({})), ignored);
  fs::remove_all(NativePath(NarrowUtf8(GetUpdaterLocalFolder({}, CreateFolder::kNo))), ignored);
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
  const fs::path folder = NativePath(GetUpdaterDataPath(appId));
  fs::create_directories(folder);
  return folder;
}

fs::path NativePath(std::string path) {
#ifndef _WIN32
  std::replace(path.begin(), path.end(), '\\', '/');
#endif
  return std::u8string(path.begin(), path.end());
}

#ifdef _WIN32
namespace {

std::string UnixPath(const fs::path& path) {
  using GetUnixName = char*(CDECL*)(LPCWSTR);
  const auto getUnixName = reinterpret_cast<GetUnixName>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  char* const name = getUnixName ? getUnixName(path.c_str()) : nullptr;
  if (!name) throw std::runtime_error("links are made under Wine only");
  const std::string copy = name;
  ::HeapFree(::GetProcessHeap(), 0, name);
  return copy;
}

// Wine's own calls make no links. The tool's end cannot be waited for: `isDone` tells.
template <class IsDone>
void RunUnixTool(const std::string& tool, const std::string& arguments, IsDone isDone) {
  std::string command = tool + " " + arguments;
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  ::CreateProcessA(("Z:\\bin\\" + tool).c_str(), command.data(), nullptr, nullptr, FALSE, 0,
                   nullptr, nullptr, &startup, &started);
  const UniqueHandle process(started.hProcess);
  const UniqueHandle thread(started.hThread);
  for (int tries = 0; !isDone(); ++tries) {
    if (tries == 1000) throw std::runtime_error(command + " does nothing");
    ::Sleep(5);
  }
}

}  // namespace

void LinkFolder(const fs::path& link, const fs::path& target) {
  RunUnixTool("ln", "-sn \"" + UnixPath(target) + "\" \"" + UnixPath(link) + "\"",
              [&] { return ::GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES; });
}

void UnlinkFolder(const fs::path& link) {
  RunUnixTool("rm", "\"" + UnixPath(link) + "\"",
              [&] { return ::GetFileAttributesW(link.c_str()) == INVALID_FILE_ATTRIBUTES; });
}
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
