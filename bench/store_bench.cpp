// Reading and writing one value of a store, beside a bare program that touches the same files.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "appinfo/app_info.h"
#include "testing/data_home.h"

namespace {

// A store as a host of some years has it, and its file.
struct Store {
  DataHome home;
  TAppInfo app{"bench"};
  std::string path = (home.AppFolder("bench") / "appinfo.xml").string();

  Store() {
    for (int i = 0; i < 24; ++i) app.Write("Key" + std::to_string(i), "a value of some length");
  }
};
}  // namespace
