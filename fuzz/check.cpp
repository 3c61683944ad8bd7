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

struct Reader {
  void (*run)(const std::string& text);
  const char *head, *tail;
};

constexpr Reader kText{[](const std::string& text) {
                         XmlNode tree;
                         LoadXml(text, &tree);
                       },
                       "", ""};
constexpr Reader kFeed{[](const std::string& text) {
                         TAppInfo2 app(kApp);
                         XmlNode feed;
                         LoadXml(text, &feed);
                         try {
                           TUpdInfo(kApp).Evaluate(app, std::move(feed), 1);
                         } catch (const std::invalid_argument&) {
                         } catch (const char*) {
                         }
                       },
                       "<rss><channel>", "</channel></rss>"};
constexpr Reader kStatistics{[](const std::string&) {  // it reads the file
                               TStatCtrl statistics(kApp, nullptr);
                               if (statistics.GetPingUrl("http://e/?x")) statistics.Rollback(0);
                             },
                             "<statistics>", "</statistics>"};

// As many pieces as fit; "%" in a piece stands for a number that goes down.
struct Shape {
  const char* label;
  const Reader& reader;
  const char *head, *piece, *tail;
};

constexpr Shape kShapes[] = {
    {"empty elements", kText, "<r>", "<a/>", "</r>"},
    {"elements of one attribute", kText, "<r>", "<a b=''/>", "</r>"},
    {"attributes in falling order", kText, "<r", " a%=''", "/>"},
    {"unclosed elements", kText, "", "<a>", ""},
    {"text with entities", kText, "<r>x", "&#65;&lt;", "</r>"},
    {"unterminated CDATA", kText, "<r>", "<![CDATA[", ""},
    {"comments", kText, "<r>", "<!>", "<a/></r>"},
    {"feed of items", kFeed, "", "<item><version:version>9.9.%</version:version></item>", ""},
    {"item of targets", kFeed, "<item>", "<update:target>9</update:target>",
     "<version:version>2.0.0.0</version:version></item>"},
    {"item of dialogs", kFeed,
     "<item><version:version>2.0.0.0</version:version><version:status>release</version:status>",
     "<version:local_dlgs/>", "</item>"},
    {"long mask", kFeed, "<item><update:target>", "1.", "</update:target></item>"},
    {"statistics of states", kStatistics, "<application-states>",
     "<state>install</state><state>uninstall</state>", "</application-states>"},
    {"statistics of empty parameters", kStatistics, "<optional-params>", "<param  />",
     "</optional-params>"},
    {"statistics of unique parameters", kStatistics, "<unique-params>", "<param>%</param>",
     "</unique-params>"},
    {"block of one long action", kStatistics,
     "<application-states><state>dayuse</state></application-states><actions><action>", "action,",
     "</action></actions>"}};

std::string Text(const Shape& shape, std::size_t size) {
  std::string text = shape.reader.head + std::string(shape.head);
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
  return text.append(shape.tail).append(shape.reader.tail);
}

// The fastest of some runs.
Cost MeasureBest(const Shape& shape, std::size_t size, int runs) {
  const std::string text = Text(shape, size);
  Cost best{std::numeric_limits<double>::max(), 0};
  for (int i = 0; i < runs; ++i) {
    Files() = {{AppFile("statistics.xml"), text}};
    const Cost cost = Measure([&] { shape.reader.run(text); });
    if (cost.seconds < best.seconds) best = cost;
  }
  return best;
}

bool Print(const std::string& label, int runs, const Cost& cost, std::size_t size, double figure,
           const char* unit, const char* fault) {
  std::printf("| %s | %d | %.1f | %.1f | %.1f ms for %zu bytes, %.1f %s | %s |\n", label.c_str(),
              runs, runs * cost.seconds,
              static_cast<double>(cost.peakBytes) / static_cast<double>(size), cost.seconds * 1e3,
              size, figure, unit, fault ? fault : "ok");
  return !fault;
}

bool MeasureShape(const Shape& shape, std::size_t size) {
  constexpr int kRuns = 3;
  // Four times the bytes take 4 times as long, or 16 times when time is not linear; caches do the
  // rest. What takes less of a byte is hardly more than the copy of a text, and caches decide its time.
  constexpr double kMostTimes = 8;
  constexpr double kCopySeconds = 1e-9;
  const Cost one = MeasureBest(shape, size, kRuns);
  const Cost four = MeasureBest(shape, 4 * size, kRuns);
  const double least = std::max(one.seconds, kCopySeconds * static_cast<double>(size));
  const bool isLinear = four.seconds <= kMostTimes * least;
  const bool isSmall = one.IsSmall(size) && four.IsSmall(4 * size);
  return Print(shape.label, kRuns, four, 4 * size, four.seconds / one.seconds,
               "times that of a quarter",
               !isLinear  ? "more than linear time"
               : !isSmall ? "too much memory"
                          : nullptr);
}

bool MeasureLargestFeed(const Shape& shape) {
  // The largest feed that is accepted, and how much of a host's memory it may take: with the process
  // itself, of 8 MB, that makes less than 60 MB.
  constexpr std::size_t kLargestFeedBytes = 8 << 20;
  constexpr std::size_t kMostFeedMemory = 52'000'000;
  const Cost cost = MeasureBest(shape, kLargestFeedBytes, 1);
  return Print("largest " + std::string(shape.label), 1, cost, kLargestFeedBytes,
               static_cast<double>(cost.peakBytes) * 1e-6, "MB",
               cost.peakBytes < kMostFeedMemory ? nullptr : "too much memory");
}

bool MeasureLimits(std::size_t size) {
  // Memory that was used once is used again: else the system's work for new pages would be measured.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  bool held = true;
  for (const Shape& shape : kShapes) {
    held &= MeasureShape(shape, size);
    if (&shape.reader != &kStatistics) held &= MeasureLargestFeed(shape);
  }
  return held;
}

// Ends the process where a property is broken, behind the name of the input.
void Replay(const std::filesystem::path& corpora) {
  for (const auto& [name, target] : kFuzzTargets) {
    Costs costs;
    for (const auto& entry : std::filesystem::directory_iterator(corpora / name)) {
      std::fprintf(stderr, "%s\n", entry.path().c_str());
      std::ifstream file(entry.path(), std::ios::binary);
      costs.Run(target, std::string(std::istreambuf_iterator<char>(file), {}));
    }
    Check(costs.inputs > 0, "there is a corpus");
    std::fputs(costs.Row(name).c_str(), stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 3 ? argv[1] : "";
  DropLog();
  if (what == "limits") return MeasureLimits(std::strtoul(argv[2], nullptr, 10)) ? 0 : 1;
  if (what == "replay") {
    Replay(argv[2]);
    return 0;
  }
  std::fputs("usage: fuzz_check replay FOLDER | fuzz_check limits BYTES\n", stderr);
  return 2;
}
