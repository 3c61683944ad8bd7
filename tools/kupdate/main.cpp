// kupdate, the publisher's tool.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "kupdate/trust_command.h"
#include "kupdate/utf8_arguments.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Publishes updates for programs with dllkupdate", "kupdate");
  app.set_version_flag("--version", KUPDATE_VERSION);
  app.require_subcommand(1);
  AddTrustCommand(&app);
  try {
    app.parse(Utf8Arguments(argc, argv));
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kExitUsage;
  } catch (const std::exception& error) {
    std::cerr << "kupdate: " << error.what() << "\n";
    return kExitFailed;
  }
}
