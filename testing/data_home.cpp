#include "testing/data_home.h"

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

void RemoveData() {
  std::error_code ignored;
  fs::remove_all(fs::path(GetUpdaterLowFolder({})).parent_path().parent_path(), ignored);
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
  std::string path = GetUpdaterDataPath(appId);
#ifndef _WIN32
  for (char& c : path) {
    if (c == '\\') c = '/';
  }
#endif
  fs::create_directories(path);
  return path;
}

std::string ReadBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteBytes(const fs::path& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
