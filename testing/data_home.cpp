#include "testing/data_home.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <system_error>

#include "util/folders.h"

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
