// Parsing, writing and evaluating feeds, beside the parsers that others use. The argument of a
// benchmark is the number of the feed's items. A parser that builds a tree gets the text in a
// buffer that is not its own, and frees the tree within the measured time.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <tinyxml2.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <pugixml.hpp>
#include <utility>

#include "bench/feed.h"
#include "testing/data_home.h"
#include "update/rss_parser.h"
#include "xml/xml_node.h"

namespace {

const std::string& Feed(const benchmark::State& state, int platforms = 2) {
  // Kept, since each benchmark runs many times and a large feed has 84 MB.
  static std::map<std::pair<std::int64_t, int>, std::string> feeds;
  std::string& feed = feeds[{state.range(0), platforms}];
  if (feed.empty()) feed = MakeFeed(static_cast<int>(state.range(0)), platforms);
  return feed;
}

// A parser that refuses the feed would look fast.
void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "failed: %s\n", what);
  std::exit(1);
}

void ParseKupdate(benchmark::State& state) {
  const std::string& feed = Feed(state);
  for (auto _ : state) {
    XmlNode root;
    root.Parse(feed);
    Require(root.HasChildren(), "parsing");
  }
  // Only for ours: a row compares the rates of a small and a large feed.
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(feed.size()));
}

void ParsePugixml(benchmark::State& state) {
  const std::string& feed = Feed(state);
  for (auto _ : state) {
    pugi::xml_document document;
    Require(document.load_buffer(feed.data(), feed.size()), "parsing with pugixml");
  }
}

void ParseTinyxml2(benchmark::State& state) {
  const std::string& feed = Feed(state);
  for (auto _ : state) {
    tinyxml2::XMLDocument document;
    Require(document.Parse(feed.data(), feed.size()) == tinyxml2::XML_SUCCESS,
            "parsing with tinyxml2");
  }
}

// Expat builds no tree and is there for orientation.
void ParseExpat(benchmark::State& state) {
  const std::string& feed = Feed(state);
  for (auto _ : state) {
    const XML_Parser parser = XML_ParserCreate(nullptr);
    Require(XML_Parse(parser, feed.data(), static_cast<int>(feed.size()), 1) == XML_STATUS_OK,
            "parsing with expat");
    XML_ParserFree(parser);
  }
}

void WriteKupdate(benchmark::State& state) {
  XmlNode root;
  root.Parse(Feed(state));
  for (auto _ : state) benchmark::DoNotOptimize(root.Serialise());
}

void WritePugixml(benchmark::State& state) {
  struct Writer final : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override {
      text.append(static_cast<const char*>(data), size);
    }
  };
  const std::string& feed = Feed(state);
  pugi::xml_document document;
  document.load_buffer(feed.data(), feed.size());
  for (auto _ : state) {
    Writer writer;
    // Into one string, as our writer does it.
    document.save(writer, "  ");
    benchmark::DoNotOptimize(writer.text);
  }
}

// Every version is newer than the application's, so no item falls out early.
void Decide(benchmark::State& state, int platforms) {
  const DataHome home;
  TAppInfo2 app("bench");
  app.SetVersion(1, 0, 0, 0);
  app.Write("Platform", "x86");
  for (auto _ : state) {
    state.PauseTiming();
    {
      // The decision takes the tree, so each round needs a new one; its parsing is not measured.
      XmlNode root;
      root.Parse(Feed(state, platforms));
      RssParser parser;
      state.ResumeTiming();
      Require(parser.IsUpgradeAvailable(app, std::move(root), 1700000000), "finding the update");
      // Tree and parser are freed while the clock stands.
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
}

constexpr int kFew = 1000;
constexpr int kMany = 100000;

BENCHMARK(ParseKupdate)->Arg(kFew)->Arg(kMany);
BENCHMARK(ParsePugixml)->Arg(kFew)->Arg(kMany);
BENCHMARK(ParseTinyxml2)->Arg(kFew)->Arg(kMany);
BENCHMARK(ParseExpat)->Arg(kFew)->Arg(kMany);
BENCHMARK(WriteKupdate)->Arg(kFew)->Arg(kMany);
BENCHMARK(WritePugixml)->Arg(kFew)->Arg(kMany);
BENCHMARK_CAPTURE(Decide, AllOurs, 1)->Arg(kMany);
BENCHMARK_CAPTURE(Decide, HalfOurs, 2)->Arg(kMany);

}  // namespace
