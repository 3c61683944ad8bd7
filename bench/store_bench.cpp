// Reading and writing one value of a store, beside a bare program that touches the same files.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "appinfo/app_info.h"
#include "testing/data_home.h"

namespace {

// A store of about the size that a host has after some years, and its file.
struct Store {
  DataHome home;
  TAppInfo app{"bench"};
  std::string path = (home.AppFolder("bench") / "appinfo.xml").string();

  Store() {
    for (int i = 0; i < 24; ++i) app.Write("Key" + std::to_string(i), "a value of some length");
  }
};

// The system calls of a store's operations, with its lock file and folders, and nothing else.
class BareStore {
 public:
  BareStore(const DataHome& home, std::string path)
      : path_(std::move(path)),
        folder_(home.AppFolder("bench").string()),
        lock_(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
  ~BareStore() { close(lock_); }
  BareStore(const BareStore&) = delete;
  BareStore& operator=(const BareStore&) = delete;

  std::string Read() const {
    Lock(LOCK_EX);
    std::string bytes = ReadLocked();
    Lock(LOCK_UN);
    return bytes;
  }

  // Reads first, as a store does, for one value changes and the others must stay. The bytes are the
  // same as before: their making is the library's work, which this program leaves out.
  void Write() const {
    Lock(LOCK_EX);
    const std::string bytes = ReadLocked();
    struct stat status;
    mkdir(folder_.c_str(), 0777);
    stat(folder_.c_str(), &status);
    const std::string fresh = path_ + ".new";
    const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    Require(write(file, bytes.data(), bytes.size()) > 0 && fsync(file) == 0);
    close(file);
    Require(rename(fresh.c_str(), path_.c_str()) == 0);
    Lock(LOCK_UN);
  }

 private:
  static void Require(bool holds) {
    if (holds) return;
    std::perror("failed: bare store");
    std::exit(1);
  }
  void Lock(int operation) const { Require(flock(lock_, operation) == 0); }
  std::string ReadLocked() const {
    char bytes[8192];
    const int file = open(path_.c_str(), O_RDONLY);
    const ssize_t size = read(file, bytes, sizeof bytes);
    // The store's file is smaller than the buffer; the second read finds its end.
    Require(size > 0 &&
            read(file, bytes + size, sizeof bytes - static_cast<std::size_t>(size)) == 0);
    close(file);
    return std::string(bytes, static_cast<std::size_t>(size));
  }

  std::string path_;
  std::string folder_;
  int lock_;
};

void StoreRead(benchmark::State& state) {
  Store store;
  for (auto _ : state) benchmark::DoNotOptimize(store.app.Read("Key20"));
}

void StoreReadBare(benchmark::State& state) {
  Store store;
  const BareStore bare(store.home, store.path);
  for (auto _ : state) benchmark::DoNotOptimize(bare.Read());
}

void StoreWrite(benchmark::State& state) {
  Store store;
  // A value that stands there already is not written.
  bool isOdd = false;
  for (auto _ : state)
    store.app.Write("Key20", (isOdd = !isOdd) ? "another value" : "the other one");
}

void StoreWriteBare(benchmark::State& state) {
  Store store;
  const BareStore bare(store.home, store.path);
  for (auto _ : state) bare.Write();
}

BENCHMARK(StoreRead);
BENCHMARK(StoreReadBare);
BENCHMARK(StoreWrite);
BENCHMARK(StoreWriteBare);

}  // namespace
