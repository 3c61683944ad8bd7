#include "testing/dll_client.h"

#include <cstdio>

#include "util/win/windows_lean.h"

namespace testing_dll {

namespace fs = std::filesystem;

namespace {

fs::path UpdaterIn(const char* folder) {
  return fs::path(Setting(L"USERPROFILE")) / "AppData" / folder / "Krelix" / "Updater";
}

}  // namespace

void* DllModule() {
  static const HMODULE module = ::LoadLibraryW(Setting(L"KUPDATE_DLL").c_str());
  if (module) return module;
  std::fprintf(stderr, "KUPDATE_DLL does not name a library that loads: error %lu\n",
               ::GetLastError());
  std::exit(2);
}

void* Export::Address() const {
  return reinterpret_cast<void*>(
      ::GetProcAddress(static_cast<HMODULE>(DllModule()), MAKEINTRESOURCEA(ordinal)));
}

const Exports& Dll() {
  static const Exports exports;
  return exports;
}

std::string TextFrom(decltype(&DLLGetLocale) getter, const char* appId) {
  char buffer[64] = "?";
  std::int32_t size = sizeof buffer;
  return getter(appId, buffer, &size) == KUPDATE_S_OK ? buffer : "failed";
}

fs::path RoamingFolder() { return UpdaterIn("Roaming"); }
fs::path LocalFolder() { return UpdaterIn("Local"); }
fs::path DataFolder() { return UpdaterIn("LocalLow"); }

std::string ValueOf(const fs::path& file, const std::string& key) {
  const std::string text = ReadBytes(file);
  std::smatch match;
  return std::regex_search(text, match, std::regex("<" + key + ">([^<]*)</")) ? match[1].str() : "";
}

kupdate_status App::Start() const {
  return Dll().onApplicationStartup(appId.c_str(), "win64", "", "", 3600, 1, 0, 0, 0, true);
}

}  // namespace testing_dll
