#include <algorithm>
#include <sstream>

#include "proof/steps/steps.h"

namespace {

bool IsBlock(const fs::path& path) { return path.filename().string().starts_with("in_work_"); }
bool IsStatistics(const fs::path& path) { return path.filename() == "statistics.xml"; }
bool IsReport(const fs::path& path) { return IsBlock(path) || IsStatistics(path); }

// The lines of all files: a value stands in one, and the order of values does not matter.
using Facts = std::multiset<std::string>;

Facts FactsOf(const Passage& passage, const Files& files) {
  constexpr std::size_t kIdChars = 38;
  Facts facts;
  for (const auto& [path, bytes] : files) {
    if (!path.has_filename()) continue;
    // A new user id is another one each time.
    const bool isNewId = path.filename() == "ui" && !passage.before.contains(path);
    std::istringstream lines(isNewId && bytes.size() == kIdChars ? "an id" : bytes);
    facts.insert(path.string());
    for (std::string line; std::getline(lines, line);) facts.insert(path.string() + ": " + line);
  }
  return facts;
}

// Counts what is to be reported: it is marked "[app: name]".
using Tokens = std::map<std::string, int>;

void AddTokens(const std::string& text, Tokens* tokens) {
  for (std::size_t begin = 0; (begin = text.find('[', begin)) != text.npos; ++begin) {
    ++(*tokens)[text.substr(begin, text.find(']', begin) - begin + 1)];
  }
}

Tokens TokensIn(const Files& files, bool (*isMeant)(const fs::path&)) {
  Tokens tokens;
  for (const auto& [path, bytes] : files) {
    // The last values are not reported.
    if (isMeant(path)) AddTokens(bytes.substr(0, bytes.find("<last-state")), &tokens);
  }
  return tokens;
}

}  // namespace

std::string ProgressOf(const Passage& passage, const Files& left) {
  const Facts facts = FactsOf(passage, left);
  if (facts == FactsOf(passage, passage.after)) return kDone;
  return facts == FactsOf(passage, passage.before) ? kUndone : "in between";
}

bool IsInTwoFiles(const Files& files) {
  const Tokens tokens = TokensIn(files, IsReport);
  return std::any_of(tokens.begin(), tokens.end(),
                     [](const auto& each) { return each.second > 1; });
}

std::string FaultOfFiles(const Passage& passage, const Outcome& outcome) {
  const Kind kind = passage.operation.kind;
  const std::string progress = ProgressOf(passage, outcome.left);
  if (progress == kDone) return {};
  const bool mustLog = outcome.returned && kind != Kind::kQuiet;
  if (mustLog && !outcome.isFailureLogged) return "a failure is not in the log";
  if (progress == kUndone) return {};
  if (kind == Kind::kOneStep || kind == Kind::kQuiet) return "a step between the two states";
  const Facts before = FactsOf(passage, passage.before);
  const Facts after = FactsOf(passage, passage.after);
  const Facts left = FactsOf(passage, outcome.left);
  // What is moved is judged by what arrives.
  const auto isJudged = [&](const std::string& fact) {
    return kind == Kind::kRepeatable || !IsReport(fact.substr(0, fact.find(": ")));
  };
  for (const std::string& fact : left) {
    const bool isKnown = before.contains(fact) || after.contains(fact);
    if (!isKnown && isJudged(fact)) return "neither old nor new: " + fact;
  }
  for (const std::string& fact : before) {
    const bool isGone = after.contains(fact) && !left.contains(fact);
    if (isGone && isJudged(fact)) return "gone: " + fact;
  }
  return {};
}

std::string FaultOfNextCalls(const Passage& passage, const Outcome& outcome) {
  constexpr int kMostReports = 20;
  const Kind kind = passage.operation.kind;
  const std::string progress = ProgressOf(passage, outcome.left);
  if (kind == Kind::kRepeatable || progress == kUndone) {
    Run(passage.operation);
    if (ProgressOf(passage, ReadState()) != kDone) return "a second call is not done";
  }
  std::string fault;
  for (const char* app : kApplications) fault += FaultOfStores(app);
  Files end = ReadState();
  for (int i = 0; i < kMostReports && !TokensIn(end, IsStatistics).empty(); ++i) {
    for (const char* app : kApplications) fault += FaultOfReport(app);
    end = ReadState();
  }
  Tokens sent;
  AddTokens(ReadLog().sent, &sent);
  const Tokens inWork = TokensIn(end, IsBlock);
  const Tokens before = TokensIn(passage.before, IsReport);
  const bool isKept = progress == kDone || (outcome.returned && !outcome.isFailureLogged);
  for (const auto& [token, count] : TokensIn(passage.after, IsReport)) {
    const bool isDue = isKept || before.contains(token);
    if (isDue && !sent.contains(token) && !inWork.contains(token)) fault += " lost: " + token;
  }
  const Tokens sentBefore = TokensIn(passage.before, IsBlock);
  for (const auto& [token, count] : sent) {
    const bool isSentAgain = kind != Kind::kTakesBack && sentBefore.contains(token);
    if (count > 1 || isSentAgain) fault += " sent twice: " + token;
  }
  for (const auto& [token, count] : TokensIn(end, IsStatistics)) fault += " still waits: " + token;
  return fault;
}
