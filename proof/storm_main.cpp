// storm PROOF AMOUNT [SEED]: kills, contention, and loading of the built library and executor.
// Rows of a table go to stdout, how far it is to stderr. Exit code 0: every promise held; 1: one did
// not; 2: wrong usage; 3: nothing has moved for two minutes.
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "proof/storm.h"
#include "proof/storm_host.h"
#include "proof/storm_row.h"
#include "testing/dll_client.h"

namespace {

using namespace testing_dll;

constexpr char kFeed[] =
    "<rss version=\"2.0\"><channel><item><version:version>2.0.0.0</version:version>"
    "<version:status>release</version:status><guid>http://127.0.0.1/none</guid></item></channel></"
    "rss>";

int Usage() {
  std::fputs("storm kills|contention|waiting|loading AMOUNT [SEED]\n", stderr);
  return 2;
}

int Run(const std::string& proof, int amount, std::uint32_t seed) {
  ::_setmode(::_fileno(stdout), _O_BINARY);
  // What an earlier run has left may be of an earlier build.
  std::filesystem::remove_all(std::filesystem::path(storm::ExecutorPath()).parent_path());
  Publish("storm-report", "ok");
  Publish("storm.rss", kFeed);
  storm::StartWatchdog();
  if (proof == "kills") return storm::RunKills(amount, seed) ? 0 : 1;
  if (proof == "contention") return storm::RunContention(amount, seed) ? 0 : 1;
  if (proof == "waiting") return storm::RunWaiting(amount, seed) ? 0 : 1;
  if (proof == "loading") return storm::RunLoading(amount) ? 0 : 1;
  return Usage();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::string(argv[1]) == "--child") return storm::RunHost(argc - 3, argv + 3);
  if (argc < 3) return Usage();
  try {
    const unsigned long seed = argc > 3 ? std::stoul(argv[3]) : 1;
    return Run(argv[1], std::stoi(argv[2]), static_cast<std::uint32_t>(seed));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "  FAULT: %s\n", error.what());
    return 1;
  }
}
