// A program that keeps itself up to date, in C++17. docs/hosts.md has the command line, which all
// samples share.
#include "dllkupdate.hpp"

#include <cstdio>
#include <cwchar>
#include <map>

namespace {

enum ExitCode { kDone = 0, kFailed = 1, kNoUpdate = 2, kUsage = 3 };

struct Options {
  kupdate::Settings settings;
  std::chrono::seconds wait{60};
  bool check = false, install = false, uninstall = false;
};

int Fail(const kupdate::Updater& updater, const char* what) {
  std::printf("failed: %s\n  see %%APPDATA%%\\Krelix\\Updater\\kupdate-exec-%s.log\n", what,
              updater.settings().id.c_str());
  return kFailed;
}

int Check(kupdate::Updater& updater, std::chrono::seconds wait) {
  std::puts("check started");
  const auto poll = [] {
    std::puts("poll: in work");
    return true;  // false when the user has no patience left
  };
  switch (updater.check(wait, poll)) {
    case kupdate::CheckResult::kFound:
      std::puts("poll: update found");
      return kDone;
    case kupdate::CheckResult::kNoUpdate:
      std::puts("poll: no update");
      return kNoUpdate;
    case kupdate::CheckResult::kDownloadFailed:
      std::puts("poll: job failed");
      return Fail(updater, "downloading the feed");
    case kupdate::CheckResult::kTimedOut:
      return Fail(updater, "waiting for the feed: it took too long");
    default:
      return Fail(updater, "reading the feed");
  }
}

int Install(kupdate::Updater& updater) {
  std::future<kupdate::Installation> installation = updater.install();
  std::puts("silent installation started");
  // A program with windows would handle its messages here.
  while (installation.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
  }
  const kupdate::Installation done = installation.get();
  if (!done.answered) return Fail(updater, "the silent installation");
  std::printf("installer exit code %d\n", static_cast<int>(done.exitCode));
  return kDone;
}

int Run(const Options& options) {
  kupdate::Updater updater(options.settings);
  if (!updater.start()) return Fail(updater, "registering");
  const kupdate::Version& v = options.settings.version;
  std::printf("registered as %s, version %d.%d.%d.%d\n", options.settings.id.c_str(), v[0], v[1],
              v[2], v[3]);
  int result = kDone;
  if (options.check) result = Check(updater, options.wait);
  if (result == kDone && options.install) result = Install(updater);
  if (result == kDone && options.uninstall) {
    if (!updater.uninstall()) return Fail(updater, "reporting the removal");
    std::puts("removal reported");
  }
  return result;
}

bool ParseVersion(const wchar_t* text, kupdate::Version* version) {
  int end = 0;
  return std::swscanf(text, L"%hu.%hu.%hu.%hu%n", &(*version)[0], &(*version)[1], &(*version)[2],
                      &(*version)[3], &end) == 4 &&
         text[end] == 0;
}

bool Parse(int argc, wchar_t** argv, Options* options) {
  kupdate::Settings& settings = options->settings;
  const std::map<std::wstring, bool*> flags = {{L"--check", &options->check},
                                               {L"--install", &options->install},
                                               {L"--uninstall", &options->uninstall}};
  const std::map<std::wstring, std::string*> texts = {{L"--id", &settings.id},
                                                      {L"--platform", &settings.platform},
                                                      {L"--feed", &settings.feed},
                                                      {L"--report", &settings.report}};
  bool hasVersion = false;
  for (int i = 1; i < argc; ++i) {
    const std::wstring name = argv[i];
    if (const auto flag = flags.find(name); flag != flags.end()) {
      *flag->second = true;
      continue;
    }
    if (++i == argc) return false;
    if (const auto text = texts.find(name); text != texts.end()) {
      *text->second = kupdate::Utf8(argv[i]);
    } else if (name == L"--executor") {
      settings.executor = argv[i];
    } else if (name == L"--wait") {
      options->wait = std::chrono::seconds(std::wcstol(argv[i], nullptr, 10));
    } else if (name == L"--version") {
      hasVersion = ParseVersion(argv[i], &settings.version);
    } else {
      return false;
    }
  }
  options->check = options->check || options->install;
  return hasVersion && !settings.id.empty() && !settings.platform.empty() && !settings.feed.empty();
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::setvbuf(stdout, nullptr, _IONBF, 0);  // show each line at once, also in a file
  Options options;
  if (!Parse(argc, argv, &options)) {
    std::puts(
        "usage: kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL\n"
        "       [--report URL] [--executor PATH] [--wait SECONDS] [--check] [--install]\n"
        "       [--uninstall]");
    return kUsage;
  }
  try {
    return Run(options);
  } catch (const kupdate::Error& error) {
    std::printf("failed: %s\n", error.what());
    return kFailed;
  }
}
