#include <algorithm>
#include <exception>
#include <iterator>

#include "proof/steps/steps.h"
#include "stat/stat_holder.h"
#include "util/text_mode.h"
#include "xml/xml_node.h"

namespace {

namespace fs = std::filesystem;

// --- what a state says ---

bool IsBlock(const fs::path& path) { return path.filename().string().starts_with("in_work_"); }
bool IsStatistics(const fs::path& path) { return path.filename() == "statistics.xml"; }
bool IsReport(const fs::path& path) { return IsBlock(path) || IsStatistics(path); }

// Bytes by path, or values by path and key where their order does not matter.
using Facts = std::map<std::string, std::string>;

Facts FactsOf(const Passage& passage, const Files& files) {
  constexpr std::size_t kIdChars = 38;
  Facts facts;
  for (const auto& [path, bytes] : files) {
    const std::string name = path.string();
    XmlNode root;
    if (path.filename() == "ui" && !passage.before.contains(path) && bytes.size() == kIdChars) {
      facts[name] = "a new id, another one each time";
    } else if (path.filename() == "appinfo.xml" || path.filename() == "updinfo.xml") {
      if (!LoadXml(bytes, &root)) facts[name] = "broken";
      for (const XmlNode* child = root.FirstChild(); child; child = child->Next()) {
        facts[name + ": " + std::string(child->Name())] = child->Value();
      }
    } else if (path.has_filename()) {
      facts[name] = bytes;
    }
  }
  return facts;
}

bool IsWholeReport(std::string bytes) {
  DropCrBeforeLf(&bytes);
  try {
    return TStatHolder().ParseXML(bytes);
  } catch (const std::exception&) {
    return false;
  }
}

// --- what is reported ---

// "application:token" with the number of times it is there.
using Tokens = std::map<std::string, int>;

// Parameters are marked "[p1]"; states have their words.
void AddTokens(const std::string& app, const std::string& text, Tokens* tokens) {
  for (std::size_t begin = 0; (begin = text.find('[', begin)) != text.npos; ++begin) {
    ++(*tokens)[app + ":" + text.substr(begin, text.find(']', begin) - begin + 1)];
  }
  for (const std::string state : {"install", "uninstall"}) {
    const bool isThere =
        text.find('>' + state + '<') != text.npos || text.find("stat=" + state + '&') != text.npos;
    if (isThere) ++(*tokens)[app + ":" + state];
  }
}

Tokens TokensIn(const Files& files, bool (*isMeant)(const fs::path&)) {
  Tokens tokens;
  for (const auto& [path, bytes] : files) {
    if (!isMeant(path)) continue;
    // The last values are not reported.
    const std::string reported = bytes.substr(0, bytes.find("<last-state"));
    AddTokens(path.parent_path().filename().string(), reported, &tokens);
  }
  return tokens;
}

Tokens SentTokens() {
  Tokens tokens;
  for (std::string line : LogLines()) {
    if (!line.starts_with(kSentNote)) continue;
    line.erase(0, std::size(kSentNote) - 1);
    const std::size_t tab = line.find('\t');
    AddTokens(line.substr(0, tab), line.substr(tab), &tokens);
  }
  return tokens;
}

// --- what the log says ---

constexpr std::size_t kTimeChars = 8;

bool IsError(const std::string& line) { return line.find(" E:") == kTimeChars; }

// A failure is reported by the line behind its note, or by one that is not there without hindrance.
bool IsFailureLogged(const Passage& passage) {
  const std::vector<std::string> lines = LogLines();
  const auto note = std::find(lines.begin(), lines.end(), kFailureNote);
  if (note != lines.end()) return note + 1 != lines.end() && IsError(note[1]);
  const std::set<std::string> errors = ErrorsInLog();
  return !std::includes(passage.errors.begin(), passage.errors.end(), errors.begin(), errors.end());
}

}  // namespace

std::set<std::string> ErrorsInLog() {
  std::set<std::string> errors;
  for (const std::string& line : LogLines()) {
    if (IsError(line)) errors.insert(line.substr(kTimeChars));
  }
  return errors;
}

Progress ProgressOf(const Passage& passage, const Files& left) {
  const Facts facts = FactsOf(passage, left);
  if (facts == FactsOf(passage, passage.after)) return Progress::kDone;
  return facts == FactsOf(passage, passage.before) ? Progress::kUndone : Progress::kBetween;
}

bool IsWaiting(const std::string& app) {
  for (const auto& [token, count] : TokensIn(ReadState(), IsStatistics)) {
    if (token.starts_with(app + ":")) return true;
  }
  return false;
}

bool IsInTwoFiles(const Files& files) {
  const Tokens tokens = TokensIn(files, IsReport);
  return std::any_of(tokens.begin(), tokens.end(),
                     [](const auto& each) { return each.second > 1; });
}

std::string FaultOfFiles(const Passage& passage, const Files& left, bool returned) {
  const Operation::Kind kind = passage.operation.kind;
  const Progress progress = ProgressOf(passage, left);
  if (progress == Progress::kDone) return {};
  if (returned && kind != Operation::kQuiet && !IsFailureLogged(passage)) {
    return "a failure is not in the log";
  }
  if (progress == Progress::kUndone) return {};
  if (kind == Operation::kOneStep || kind == Operation::kQuiet) {
    return "a step between the two states";
  }
  Facts before = FactsOf(passage, passage.before);
  Facts after = FactsOf(passage, passage.after);
  Facts facts = FactsOf(passage, left);
  Facts all = facts;
  all.insert(before.begin(), before.end());
  for (const auto& [name, ignored] : all) {
    const std::string& fact = facts[name];
    if (fact == before[name] || fact == after[name]) continue;
    if (kind == Operation::kRepeatable || !IsReport(name)) {
      return name + " is neither the old nor the new one";
    }
    if (!IsWholeReport(fact)) return name + " is not whole";
  }
  return {};
}

std::string FaultOfNextCalls(const Passage& passage, const Files& left, bool returned) {
  const Operation& operation = passage.operation;
  const Progress progress = ProgressOf(passage, left);
  const bool isKept = progress == Progress::kDone || (returned && !IsFailureLogged(passage));
  if (operation.kind == Operation::kRepeatable || progress == Progress::kUndone) {
    Run(operation);
    if (ProgressOf(passage, ReadState()) != Progress::kDone) return "a second call is not done";
  }
  for (const char* app : kApplications) {
    const std::string fault = FaultOfGoingOn(app);
    if (!fault.empty()) return fault;
  }
  const Files end = ReadState();
  const Tokens sent = SentTokens();
  const Tokens inWork = TokensIn(end, IsBlock);
  const Tokens before = TokensIn(passage.before, IsReport);
  for (const auto& [token, count] : TokensIn(passage.after, IsReport)) {
    const bool isDue = isKept || before.contains(token);
    if (isDue && !sent.contains(token) && !inWork.contains(token)) return "lost: " + token;
  }
  const Tokens sentBefore = TokensIn(passage.before, IsBlock);
  for (const auto& [token, count] : sent) {
    const bool mayRepeat = operation.kind == Operation::kTakesBack;
    if (count > 1 || (!mayRepeat && sentBefore.contains(token))) return "sent twice: " + token;
  }
  for (const auto& [token, count] : TokensIn(end, IsStatistics)) return "still waiting: " + token;
  return {};
}
