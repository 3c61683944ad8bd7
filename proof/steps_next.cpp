// What a host does after something went wrong, and what must then have reached the server.
#include <set>

#include "appinfo/app_info2.h"
#include "executor/block_confirm.h"
#include "executor/executor_names.h"
#include "layout/names.h"
#include "proof/steps_world.h"
#include "stat/stat_ctrl.h"
#include "util/mutex.h"

namespace {

constexpr std::uint64_t kLater = 1'900'000'000;
constexpr int kMaxReports = 20;

// "application:token" with the number of times it is there.
using Tokens = std::map<std::string, int>;

// Parameters are marked "[p1]"; states have their words.
void AddTokens(const std::string& app, const std::string& text, Tokens* tokens) {
  for (std::size_t begin = 0; (begin = text.find('[', begin)) != text.npos; ++begin) {
    ++(*tokens)[app + ":" + text.substr(begin, text.find(']', begin) - begin + 1)];
  }
  for (const char* state : {">install<", "stat=install&", ">uninstall<", "stat=uninstall&"}) {
    const std::string word(state);
    if (text.find(word) == text.npos) continue;
    ++(*tokens)[app + (word.find("un") == word.npos ? ":install" : ":uninstall")];
  }
}

bool IsInWork(const std::string& name) { return name.find("/in_work_") != name.npos; }

// What waits in one file, without the last values, which are reported by nobody.
Tokens TokensOfFile(const std::string& name, const std::string& bytes) {
  Tokens tokens;
  if (!IsInWork(name) && !name.ends_with("/statistics.xml")) return tokens;
  const std::size_t slash = name.find('/');
  const std::string app = name.substr(slash + 1, name.rfind('/') - slash - 1);
  AddTokens(app, bytes.substr(0, bytes.find("<last-state")), &tokens);
  return tokens;
}

Tokens TokensOf(const Files& files, bool onlyInWork = false) {
  Tokens tokens;
  for (const auto& [name, bytes] : files) {
    if (onlyInWork && !IsInWork(name)) continue;
    for (const auto& [token, count] : TokensOfFile(name, bytes)) tokens[token] += count;
  }
  return tokens;
}

Tokens TokensOfSent(const Sent& sent) {
  Tokens tokens;
  for (std::size_t at = 0; at < sent.size();) {
    const std::size_t tab = sent.find('\t', at);
    const std::size_t end = sent.find('\n', at);
    AddTokens(sent.substr(at, tab - at), sent.substr(tab, end - tab), &tokens);
    at = end + 1;
  }
  return tokens;
}

bool IsWaiting(const std::string& app) {
  const Files files = ReadState();
  const auto file = files.find("low/" + app + "/statistics.xml");
  return file != files.end() && !TokensOfFile(file->first, file->second).empty();
}

// One application goes on: writes, reads back, sends all that waits, and all of it arrives.
std::string FaultOfGoingOn(const std::string& app, Sent* sent) {
  Mutex lock(StatisticsMutexName(app));
  TAppInfo2 record(app);
  TStatCtrl statistics(app, &lock);
  record.Write("ReportUrl", "http://h/report");
  record.Write("Probe", "1");
  if (record.Read("Probe") != "1") return "a value does not come back: " + app;
  statistics.AddOptionalParam("[probe]");
  if (statistics.LastParam() != "[probe]") return "a parameter does not come back: " + app;
  std::vector<int> blocks;
  // A block needs a state, and each report adds one.
  for (int reports = 0; reports == 0 || (reports < kMaxReports && IsWaiting(app)); ++reports) {
    TStatCtrl::SendStat(record, &lock, kLater, [&](const std::string& id, const PingBlock& block) {
      *sent += id + '\t' + block.url + '\n';
      blocks.push_back(block.id);
      return true;
    });
  }
  for (const int block : blocks) {
    if (!ConfirmBlock(app, block, &lock)) return "a block cannot be confirmed: " + app;
  }
  return {};
}

std::set<std::string> TokensToKeep(const Passage& passage, const Files& left,
                                   const Outcome& outcome) {
  std::set<std::string> kept;
  const Tokens before = TokensOf(passage.before);
  const bool counts = IsDone(passage, left) || (outcome.returned && !outcome.isLogged);
  for (const auto& [token, count] : TokensOf(passage.after)) {
    if (counts || before.contains(token)) kept.insert(token);
  }
  return kept;
}

}  // namespace

bool IsInTwoFiles(const Files& files) {
  for (const auto& [token, count] : TokensOf(files)) {
    if (count > 1) return true;
  }
  return false;
}

std::string FaultOfNextCalls(const Passage& passage, const Files& left, const Outcome& outcome) {
  const Operation& operation = passage.operation;
  Sent sent = outcome.sent;
  if (operation.kind == Operation::kRepeatable || IsUndone(passage, left)) {
    operation.run(&sent);
    if (!IsDone(passage, ReadState())) return "done again it is not done";
  }
  for (const char* app : kApplications) {
    const std::string fault = FaultOfGoingOn(app, &sent);
    if (!fault.empty()) return fault;
  }
  const Tokens arrived = TokensOfSent(sent);
  const Files end = ReadState();
  const Tokens inWork = TokensOf(end, true);
  for (const std::string& token : TokensToKeep(passage, left, outcome)) {
    if (!arrived.contains(token) && !inWork.contains(token)) return "lost: " + token;
  }
  const Tokens handedOut = TokensOf(passage.before, true);
  for (const auto& [token, count] : arrived) {
    const bool twice = count > 1 || (!operation.takesBack && handedOut.contains(token));
    if (twice) return "reported twice: " + token;
  }
  for (const auto& [name, bytes] : end) {
    if (!IsInWork(name) && !TokensOfFile(name, bytes).empty()) return "still waiting in " + name;
  }
  return {};
}
