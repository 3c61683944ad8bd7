#include "testing/data_home.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>

#include "util/folders.h"

namespace {

namespace fs = std::filesystem;

fs::path MakeTempFolder() {
  std::random_device random;
  const fs::path folder = fs::temp_directory_path() / ("kupdate-test-" + std::to_string(random()));
  fs::create_directories(folder);
  return folder;
}

// Removes the folder when the process ends.
struct TempFolder {
  fs::path path = MakeTempFolder();
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
};

fs::path ToPath(std::string text) {
#ifndef _WIN32
  std::replace(text.begin(), text.end(), '\\', '/');
#endif
  return fs::u8path(text);
}

void RemoveData() {
  std::error_code ignored;
  fs::remove_all(ToPath(GetUpdaterDataPath({})), ignored);
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
  const fs::path folder = ToPath(GetUpdaterDataPath(appId));
  fs::create_directories(folder);
  return folder;
}

std::string ReadBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteBytes(const fs::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
