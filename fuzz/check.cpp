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
  IsTaken("", [&] { TUpdInfo(kApp).Evaluate(app, std::move(feed), 1); });
}

void CutStatistics(const std::string&) {  // the file's
  TStatCtrl statistics(kApp, nullptr);
  if (statistics.GetPingUrl("http://e/?x")) statistics.Rollback(0);
}

// As many pieces as fit; "%" in a piece stands for a number that goes down.
struct Shape {
  const char* label;
  void (*read)(const std::string& text);
  const char *head, *piece, *tail;
};

constexpr Shape kShapes[] = {
    {"empty elements", ParseText, "<r>", "<a/>", "</r>"},
    {"elements of one attribute", ParseText, "<r>", "<a b=''/>", "</r>"},
    {"attributes in falling order", ParseText, "<r", " a%=''", "/>"},
    {"unclosed elements", ParseText, "", "<a>", ""},
    {"text with entities", ParseText, "<r>x", "&#65;&lt;", "</r>"},
    {"unterminated CDATA", ParseText, "<r>", "<![CDATA[", ""},
    {"comments", ParseText, "<r>", "<!>", "<a/></r>"},
    {"feed of items", EvaluateFeed, "<rss><channel>",
     "<item><version:version>9.9.%</version:version></item>", "</channel></rss>"},
    {"item of targets", EvaluateFeed, "<rss><channel><item>", "<update:target>9</update:target>",
     "<version:version>2.0.0.0</version:version></item></channel></rss>"},
    {"item of dialogs", EvaluateFeed,
     "<rss><channel><item><version:version>2.0.0.0</version:version>"
     "<version:status>release</version:status>",
     "<version:local_dlgs/>", "</item></channel></rss>"},
    {"long mask", EvaluateFeed, "<rss><channel><item><update:target>", "1.",
     "</update:target></item></channel></rss>"},
    {"statistics of states", CutStatistics, "<statistics><application-states>",
     "<state>install</state><state>uninstall</state>", "</application-states></statistics>"},
    {"statistics of empty parameters", CutStatistics, "<statistics><optional-params>", "<param  />",
     "</optional-params></statistics>"},
    {"statistics of unique parameters", CutStatistics, "<statistics><unique-params>",
     "<param>%</param>", "</unique-params></statistics>"},
    {"block of one long action", CutStatistics,
     "<statistics><application-states><state>dayuse</state></application-states><actions><action>",
     "action,", "</action></actions></statistics>"}};

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

constexpr std::size_t kBytes = 4'000'000;  // as large as stores may be
// The largest feed, and how much of a host's memory it may take: with the process itself, of 8 MB,
// that makes less than 60 MB.
constexpr std::size_t kFeedBytes = 8 << 20;
constexpr std::size_t kMostFeedMemory = 52'000'000;

constexpr int kRuns = 3;  // the fastest counts

Cost MeasureBest(const Shape& shape, std::size_t size) {
  const std::string text = Text(shape, size);
  Cost best{};
  for (int i = 0; i < kRuns; ++i) {
    Files() = {{AppFile("statistics.xml"), text}};
    const Cost cost = Measure([&] { shape.read(text); });
    if (i == 0 || cost.seconds < best.seconds) best = cost;
  }
  return best;
}

const char* FaultOf(const Cost& part, const Cost& whole) {
  // Four times the bytes take 4 times as long, or 16 times when time is not linear; caches do the
  // rest. What takes less of a byte is hardly more than the copy of a text, and caches decide its
  // time.
  constexpr double kMostTimes = 8;
  constexpr double kCopySeconds = 1e-9;
  if (whole.peakBytes <= part.peakBytes) return "not read as a whole";
  if (!part.IsSmall(kBytes / 4) || !whole.IsSmall(kBytes)) return "too much memory";
  const double least = std::max(part.seconds, kCopySeconds * kBytes / 4);
  return whole.seconds > kMostTimes * least ? "more than linear time" : nullptr;
}

bool MeasureShape(const Shape& shape) {
  const Cost part = MeasureBest(shape, kBytes / 4);
  const Cost whole = MeasureBest(shape, kBytes);
  const Cost feed = shape.read == CutStatistics ? Cost{} : MeasureBest(shape, kFeedBytes);
  const char* fault = FaultOf(part, whole);
  if (feed.peakBytes > kMostFeedMemory) fault = "too much memory for a feed";
  std::printf(
      "| %s | %d | %.1f | %.1f | %.1f ms for %zu bytes, %.1f times that of a quarter; as largest "
      "feed %.1f MB | %s |\n",
      shape.label, 3 * kRuns, kRuns * (part.seconds + whole.seconds + feed.seconds),
      static_cast<double>(whole.peakBytes) / kBytes, whole.seconds * 1e3, kBytes,
      whole.seconds / part.seconds, static_cast<double>(feed.peakBytes) * 1e-6,
      fault ? fault : "ok");
  return !fault;
}

bool MeasureLimits() {
  // Memory that was used once is used again, so that no work of the system for new pages counts.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  const auto faults = std::count_if(std::begin(kShapes), std::end(kShapes),
                                    [](const Shape& shape) { return !MeasureShape(shape); });
  return faults == 0;
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
  const std::string_view what = argc > 1 ? argv[1] : "";
  DropLog();
  if (what == "limits") return MeasureLimits() ? 0 : 1;
  if (what != "replay" || argc != 3) {
    std::fputs("usage: fuzz_check replay FOLDER | fuzz_check limits\n", stderr);
    return 2;
  }
  Replay(argv[2]);
  return 0;
}
