// Uses two versions of the library at once, from two files, and files that are no library.
// Usage: libraries FIRST SECOND FOREIGN FEED   three DLLs; an address of a feed where no server answers
// scripts/proof/hosts compares the output.
#include "dllkupdate.hpp"

#include <cstdio>

namespace {

void Print(const std::string& line) { std::puts(line.c_str()); }

void PrintVersion(const kupdate::Library& library) {
  std::string text;
  for (const std::uint16_t part : library.version()) text += " " + std::to_string(part);
  Print("version" + text);
}

kupdate::Updater MakeUpdater(const char* id, const wchar_t* library, const wchar_t* feed) {
  kupdate::Settings settings;
  settings.id = id;
  settings.platform = "win64";
  settings.feed = kupdate::Utf8(feed);
  settings.library = library;
  return kupdate::Updater(settings);
}

void Refuse(const wchar_t* file) try {
  const kupdate::Library library(file);
  Print("loaded");
} catch (const kupdate::Error& error) {
  const std::string text = error.what();
  Print("refused:" + text.substr(text.find_last_of("\\ ", text.find(", system"))));
}

// Ends in four ways; after each the check can be started again.
void StopChecks(kupdate::Updater& updater) {
  const auto print = [](kupdate::CheckResult result) {
    Print("check " + std::to_string(static_cast<int>(result)));
  };
  print(updater.check(std::chrono::milliseconds(300)));
  print(updater.check(std::chrono::milliseconds::max(), [] { return false; }));
  std::stop_source source;
  source.request_stop();
  print(updater.check(std::chrono::milliseconds::max(), source.get_token()));
  try {
    updater.check(std::chrono::milliseconds::max(), []() -> bool { throw 1; });
  } catch (int) {
    Print("check thrown");
  }
  print(updater.check(std::chrono::milliseconds(0)));
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 5) return 3;
  kupdate::Updater first = MakeUpdater("two-first", argv[1], argv[4]);
  kupdate::Updater second = MakeUpdater("two-second", argv[2], argv[4]);
  PrintVersion(first.library());
  PrintVersion(second.library());
  if (!first.start() || !second.start()) return 1;

  // Longer than the first buffer of a getter.
  const std::string value = std::string(300, 'x') + "\xD0\x96\xF0\x9F\x98\x80";
  if (!first.setUniqueParam("name", value) || !second.setLocale("ru")) return 1;
  // Each library reads what the other has written.
  const kupdate::Updater reader = MakeUpdater("two-first", argv[2], argv[4]);
  Print(reader.uniqueParam("name") == value ? "same value" : "another value");
  Print("locales '" + first.locale().value_or("none") + "' '" + second.locale().value_or("none") +
        "'");
  Print(first.userId() == second.userId() ? "same user" : "another user");

  // Each library has a check of its own.
  std::thread other([&] { StopChecks(second); });
  const bool timedOut = first.check(std::chrono::seconds(1)) == kupdate::CheckResult::kTimedOut;
  other.join();
  Print(timedOut ? "other check timed out" : "other check disturbed");

  const kupdate::Installation installation = first.install().get();
  Print(installation.answered ? "installed" : "nothing to install");
  Refuse(argv[3]);
  Refuse(L"missing.dll");
  first.uninstall();
  second.uninstall();
  return 0;
}
