#include "kupdate/files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const std::string& path, const char* what, const std::error_code& error) {
  throw std::runtime_error(path + ": " + what + ": " + error.message());
}

fs::path Native(const std::string& path) { return std::u8string(path.begin(), path.end()); }

std::error_code LastError() { return {errno, std::generic_category()}; }

}  // namespace

std::string ReadWholeFile(const std::string& path) {
  const fs::path native = Native(path);
  std::error_code error;
  if (fs::is_directory(native, error)) {
    Fail(path, "cannot be read", std::make_error_code(std::errc::is_a_directory));
  }
  std::ifstream file(native, std::ios::binary);
  if (!file) Fail(path, "cannot be read", LastError());
  std::string bytes(std::istreambuf_iterator<char>(file), {});
  if (file.bad()) Fail(path, "cannot be read", LastError());
  return bytes;
}

void ReplaceWholeFile(const std::string& path, std::string_view bytes) {
  const fs::path native = Native(path);
  // A file that may not be written would be replaced all the same: its folder decides.
  if (!std::fstream(native, std::ios::binary | std::ios::in | std::ios::out)) {
    Fail(path, "cannot be written", LastError());
  }
  fs::path fresh = native;
  fresh += ".new";
  std::error_code error;
  const fs::perms permissions = fs::status(native).permissions();
  {
    std::ofstream file(fresh, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
    if (!file) error = LastError();
  }
  if (!error) fs::permissions(fresh, permissions, error);
  if (!error) fs::rename(fresh, native, error);
  if (!error) return;
  std::error_code ignored;
  fs::remove(fresh, ignored);
  Fail(path, "cannot be written", error);
}
