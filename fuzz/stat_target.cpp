#include <stdexcept>

#include "fuzz/fuzz.h"
#include "stat/stat_ctrl.h"
#include "util/text.h"
#include "util/text_mode.h"

namespace {

// Each takes the time of all that waits; no kind of damage needs more of them.
constexpr int kBlocks = 2;

std::string InWork(int id) { return AppFile("in_work_" + DecimalText(id) + ".xml"); }

// What a file with the holder's content holds when it is read again.
std::string Stored(const TStatHolder& holder) {
  TStatHolder stored;
  Check(stored.ParseXML(holder.MakeXML()), "a written file is whole");
  return stored.MakeXML();
}

std::string StoredStatistics() {
  TStatHolder waiting;
  waiting.Load(AppFile("statistics.xml"));
  return waiting.MakeXML();
}

void CheckBlock(const PingBlock& block, const std::string& baseUrl) {
  TStatHolder inWork;
  Check(inWork.Load(InWork(block.id)), "a block's file is whole");
  const std::string query = inWork.MakeQuery();
  Check(block.url.starts_with(baseUrl + "&" + query), "an address carries what its file holds");
}

// Cuts blocks, then takes them back.
void CheckNothingIsLost(TStatHolder holder, std::size_t seed) {
  if (!holder.Confirmed()) holder.SetFirstDate({});  // alone it is nothing
  const std::string before = Stored(holder);
  Check(holder.Save(AppFile("statistics.xml")), "statistics are saved");
  const std::string baseUrl = "http://example.com/?krsoft=app&x=" + std::string(seed % 950, 'x');
  TStatCtrl statistics(kApp, nullptr);
  int blocks = 0;
  for (; blocks < kBlocks; ++blocks) {
    const std::optional<PingBlock> block = statistics.GetPingUrl(baseUrl);
    if (!block) break;
    Check(block->id == blocks, "each block has its own file");
    CheckBlock(*block, baseUrl);
  }
  while (blocks > 0) statistics.Rollback(--blocks);
  Check(StoredStatistics() == before, "nothing is lost");
}

void CheckRollback(std::string_view inWork, const TStatHolder& merged) {
  Files().clear();
  Files()[InWork(0)] = WithCrLf(inWork);
  TStatCtrl(kApp, nullptr).Rollback(0);
  Check(!Files().contains(InWork(0)), "a block that was taken back is gone");
  Check(StoredStatistics() == Stored(merged), "and waits again");
}

}  // namespace

// The input is the file of what waits, then that of a block.
void FuzzStat(std::string_view input) {
  TStatHolder holder;
  try {
    holder.ParseXML(std::string(input));
  } catch (const std::invalid_argument& error) {
    Check(std::string_view(error.what()) == "Unknown state.", "the message is the known one");
    return;
  }
  TStatHolder block = holder;
  holder.Merge(TStatHolder());  // leaves one dayuse
  CheckNothingIsLost(std::move(holder), input.size() * 37);
  TStatHolder merged;
  merged.Merge(std::move(block));
  CheckRollback(input, merged);
}
