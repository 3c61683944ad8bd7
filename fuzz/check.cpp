// Needs no fuzzer: replays the corpora, and measures the worst inputs of two sizes and the worst
// feeds of the largest. Prints rows.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <regex>
#include <stdexcept>

#include "fuzz/fuzz.h"
#include "stat/stat_ctrl.h"
#include "testing/data_home.h"
#include "update/upd_info.h"

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
  } catch (const char*) {  // a bad mask
  }
}

void CutStatistics(const std::string&) {  // those of the file
  TStatCtrl statistics(kApp, nullptr);
  if (statistics.GetPingUrl("http://e/?x")) statistics.Rollback(0);
}

const std::map<std::string, void (*)(const std::string& text)> kReaders = {
    {"text", ParseText}, {"feed", EvaluateFeed}, {"statistics", CutStatistics}};

struct Shape {
  std::string reader, label, head, piece, tail;

  std::string Text(std::size_t size) const {
    std::string text = head;
    text.reserve(size + 200);
    // One digit and a dot in front: as a part of a version it has not more than 16 bits.
    for (unsigned number = 9'999'999; text.size() < size; --number) {
      for (const char c : piece) {
        if (c != '%') {
          text += c;
        } else {
          text += std::to_string(number % 10000) + '.' + std::to_string(number / 10000);
        }
      }
    }
    return text += tail;
  }
};

constexpr std::size_t kBytes = 4'000'000;  // as large as stores may be
// The largest feed, and how much of a host's memory it may take: with the process itself, of 8 MB,
// that makes less than 60 MB.
constexpr std::size_t kFeedBytes = 8 << 20;
constexpr std::size_t kMostFeedMemory = 52'000'000;

constexpr int kRuns = 3;  // the fastest counts

Cost MeasureBest(const Shape& shape, std::size_t size) {
  const std::string text = shape.Text(size);
  Cost best{};
  for (int i = 0; i < kRuns; ++i) {
    RemoveAppFiles();
    WriteBytes(AppFile("statistics.xml"), text);
    const Cost cost = Measure([&] { kReaders.at(shape.reader)(text); });
    if (i == 0 || cost.seconds < best.seconds) best = cost;
  }
  return best;
}

const char* FaultOf(const Cost& part, const Cost& whole, const Cost& feed) {
  // Four times the bytes take 4 times as long, or 16 times when time is not linear; caches do the
  // rest. What takes less of a byte is hardly more than the copy of a text, and caches decide its
  // time.
  constexpr double kMostTimes = 8;
  constexpr double kCopySeconds = 1e-9;
  if (feed.peakBytes > kMostFeedMemory) return "too much memory for a feed";
  if (whole.peakBytes <= part.peakBytes) return "not read as a whole";
  if (!part.IsSmall(kBytes / 4) || !whole.IsSmall(kBytes)) return "too much memory";
  const double least = std::max(part.seconds, kCopySeconds * kBytes / 4);
  return whole.seconds > kMostTimes * least ? "more than linear time" : "ok";
}

bool MeasureShape(const Shape& shape) {
  const Cost part = MeasureBest(shape, kBytes / 4), whole = MeasureBest(shape, kBytes);
  const Cost feed = shape.reader == "statistics" ? Cost{} : MeasureBest(shape, kFeedBytes);
  const std::string result = FaultOf(part, whole, feed);
  std::printf(
      "| %s | %d | %.1f | %.1f | %.1f ms for %zu bytes, %.1f times that of a quarter; as largest "
      "feed %.1f MB | %s |\n",
      shape.label.c_str(), 3 * kRuns, kRuns * (part.seconds + whole.seconds + feed.seconds),
      static_cast<double>(whole.peakBytes) / kBytes, whole.seconds * 1e3, kBytes,
      whole.seconds / part.seconds, static_cast<double>(feed.peakBytes) * 1e-6, result.c_str());
  return result == "ok";
}

bool MeasureLimits(const std::string& file) {
  // Memory that was used once is used again, so that no work of the system for new pages counts.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  bool areAllGood = true;
  const std::regex row("(\\w+): (.*?): (.*)\\{(.*)\\}(.*)");
  for (const std::string& line : LinesOf(ReadBytes(file))) {
    std::smatch m;
    if (!std::regex_match(line, m, row)) continue;
    areAllGood &= MeasureShape({m[1], m[2], m[3], m[4], m[5]});
  }
  return areAllGood;
}

// Ends the process where a property is broken, behind the name of the input.
void Replay(const std::filesystem::path& corpora) {
  for (const auto& [name, target] : kFuzzTargets) {
    Costs costs;
    for (const auto& input : std::filesystem::directory_iterator(corpora / name)) {
      std::fprintf(stderr, "%s\n", input.path().c_str());
      costs.Run(target, ReadBytes(input));
    }
    Check(costs.inputs > 0, "there is a corpus");
    std::fputs(costs.Row(name).c_str(), stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc == 3 ? argv[1] : "";
  if (what == "limits") return MeasureLimits(argv[2]) ? 0 : 1;
  if (what == "replay") return Replay(argv[2]), 0;
  std::fputs("usage: fuzz_check replay FOLDER | fuzz_check limits FILE\n", stderr);
  return 2;
}
