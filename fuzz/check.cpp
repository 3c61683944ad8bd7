// Needs no fuzzer: replays the corpora, and measures the worst inputs of two sizes and the worst
// feeds of the largest. Prints rows.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>

#include "fuzz/fuzz.h"
#include "stat/stat_ctrl.h"
#include "update/upd_info.h"
#include "xml/xml_node.h"

namespace {

void ParseText(const std::string& text) {
  XmlNode tree;
  LoadXml(text, &tree);
}

void EvaluateFeed(const std::string& text) {
  TAppInfo2 app(kApp);
  XmlNode feed;
  LoadXml(text, &feed);
  try {
    TUpdInfo(kApp).Evaluate(app, std::move(feed), 1);
  } catch (const std::invalid_argument&) {
  } catch (const char*) {
  }
}

void CutStatistics(const std::string&) {  // the file's
  TStatCtrl statistics(kApp, nullptr);
  if (statistics.GetPingUrl("http://e/?x")) statistics.Rollback(0);
}

// Four times the bytes take 4 times as long, or 16 times when time is not linear; caches do the rest.
constexpr double kMostTimes = 8;
// What takes less of a byte is hardly more than the copy of a text, and caches decide its time.
constexpr double kCopySeconds = 1e-9;
constexpr int kRuns = 3;  // the fastest counts

// The largest feed that is accepted, and how much of a host's memory it may take: with the process
// itself, of 8 MB, that makes less than 60 MB.
constexpr std::size_t kLargestFeedBytes = 8 << 20;
constexpr std::size_t kMostFeedMemory = 52'000'000;

// Memory that was used once is used again: else the system's work for new pages would be measured.
void KeepMemory() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
}

// A text with as many pieces as fit; "%" in a piece stands for a number that goes down.
struct Shape {
  const char* label;
  const char *head, *piece, *tail;
  void (*run)(const std::string& text);
};

constexpr Shape kShapes[] = {
    {"empty elements", "<r>", "<a/>", "</r>", ParseText},
    {"elements of one attribute", "<r>", "<a b=''/>", "</r>", ParseText},
    {"attributes in falling order", "<r", " a%=''", "/>", ParseText},
    {"unclosed elements", "", "<a>", "", ParseText},
    {"text with entities", "<r>x", "&#65;&lt;", "</r>", ParseText},
    {"unterminated CDATA", "<r>", "<![CDATA[", "", ParseText},
    {"comments", "<r>", "<!>", "<a/></r>", ParseText},
    {"feed of items", "<rss><channel>", "<item><version:version>9.9.%</version:version></item>",
     "</channel></rss>", EvaluateFeed},
    {"item of targets", "<rss><channel><item>", "<update:target>9</update:target>",
     "<version:version>2.0.0.0</version:version></item></channel></rss>", EvaluateFeed},
    {"item of dialogs",
     "<rss><channel><item><version:version>2.0.0.0</version:version>"
     "<version:status>release</version:status>",
     "<version:local_dlgs/>", "</item></channel></rss>", EvaluateFeed},
    {"long mask", "<rss><channel><item><update:target>", "1.",
     "</update:target></item></channel></rss>", EvaluateFeed},
    {"statistics of states", "<statistics><application-states>",
     "<state>install</state><state>uninstall</state>", "</application-states></statistics>",
     CutStatistics},
    {"statistics of empty parameters", "<statistics><optional-params>", "<param  />",
     "</optional-params></statistics>", CutStatistics},
    {"statistics of unique parameters", "<statistics><unique-params>", "<param>%</param>",
     "</unique-params></statistics>", CutStatistics},
    {"block of one long action",
     "<statistics><application-states><state>dayuse</state></application-states><actions><action>",
     "action,", "</action></actions></statistics>", CutStatistics}};

std::string Text(const Shape& shape, std::size_t size) {
  std::string text = shape.head;
  text.reserve(size + 200);
  // One digit and a dot in front: as a part of a version it has not more than 16 bits.
  for (unsigned number = 9'999'999; text.size() < size; --number) {
    for (const char c : std::string_view(shape.piece)) {
      if (c == '%') {
        text += std::to_string(number % 10000).append(".").append(std::to_string(number / 10000));
      } else {
        text += c;
      }
    }
  }
  return text += shape.tail;
}

Cost Best(const Shape& shape, const std::string& text) {
  Cost best;
  for (int i = 0; i < kRuns; ++i) {
    Files() = {{AppFile("statistics.xml"), text}};
    const Cost cost = Measure([&] { shape.run(text); });
    best = i == 0 || cost.seconds < best.seconds ? cost : best;
  }
  return best;
}

bool MeasureShape(const Shape& shape, std::size_t size) {
  const std::string few = Text(shape, size);
  const std::string many = Text(shape, 4 * size);
  const Cost one = Best(shape, few);
  const Cost four = Best(shape, many);
  const double times = four.seconds / one.seconds;
  const double least = std::max(one.seconds, kCopySeconds * static_cast<double>(few.size()));
  const bool isLinear = four.seconds <= kMostTimes * least;
  const bool isSmall = IsSmall(one, few.size()) && IsSmall(four, many.size());
  const char* const result = !isLinear ? "more than linear time"
                             : isSmall ? "ok"
                                       : "too much memory";
  std::printf(
      "| %s | %d | %.1f | %.1f | %.1f ms for %zu bytes, %.1f times that of a quarter | %s |\n",
      shape.label, 2 * kRuns, kRuns * (one.seconds + four.seconds),
      static_cast<double>(four.peakBytes) / static_cast<double>(many.size()), four.seconds * 1e3,
      many.size(), times, result);
  return result == std::string_view("ok");
}

bool MeasureLargestFeed(const Shape& shape) {
  const std::string text = Text(shape, kLargestFeedBytes);
  const Cost cost = Measure([&] { shape.run(text); });
  const bool isSmall = cost.peakBytes < kMostFeedMemory;
  std::printf("| largest %s | 1 | %.1f | %.1f | %.1f ms for %zu bytes, %.1f MB | %s |\n",
              shape.label, cost.seconds,
              static_cast<double>(cost.peakBytes) / static_cast<double>(text.size()),
              cost.seconds * 1e3, text.size(), static_cast<double>(cost.peakBytes) * 1e-6,
              isSmall ? "ok" : "too much memory");
  return isSmall;
}

void Replay(const FuzzTarget& target, const std::filesystem::path& corpora) {
  Costs costs;
  for (const auto& entry : std::filesystem::directory_iterator(corpora / target.name)) {
    std::fprintf(stderr, "%s\n", entry.path().c_str());
    std::ifstream file(entry.path(), std::ios::binary);
    costs.Run(target, std::string(std::istreambuf_iterator<char>(file), {}));
  }
  Check(costs.inputs > 0, "there is a corpus");
  costs.Print(stdout, target.name);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 3 ? argv[1] : "";
  DropLog();
  int failures = 0;
  if (what == "replay") {
    for (const FuzzTarget& target : kFuzzTargets) Replay(target, argv[2]);
  } else if (what == "limits") {
    KeepMemory();
    for (const Shape& shape : kShapes) {
      failures += MeasureShape(shape, std::strtoul(argv[2], nullptr, 10)) ? 0 : 1;
      if (shape.run != CutStatistics) failures += MeasureLargestFeed(shape) ? 0 : 1;
    }
  } else {
    std::fputs("usage: fuzz_check replay FOLDER | fuzz_check limits BYTES\n", stderr);
    return 2;
  }
  return failures == 0 ? 0 : 1;
}
