// Hosts and executors are killed at random moments, three at a time on one application.
#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <thread>

#include "proof/storm.h"
#include "proof/storm_diary.h"
#include "proof/storm_host.h"
#include "proof/storm_row.h"
#include "proof/storm_service.h"
#include "proof/storm_stores.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "util/text.h"
#include "util/win/windows_lean.h"

namespace storm {

namespace fs = std::filesystem;
using namespace testing_dll;

namespace {

constexpr int kVictims = 3;
constexpr int kRoundsOfAnApplication = 20;
constexpr int kEnoughToMeetAll = 500;
constexpr int kFewStarts = 3;  // that the system may fail to bring to their first line
constexpr std::size_t kFewJobs = 2;
constexpr std::size_t kManyJobs = 5;

// How an application is treated.
enum class Care {
  kKept,      // never removed: all items are counted exactly
  kRemoved,   // removed and registered again and again; another application keeps the executor
  kLeftLast,  // the same without another one: the executor removes itself, and what is known
};

// The command lines of the executor. The first three depend on a job that waits.
enum Command {
  kCheck,
  kPing,
  kLastPing,
  kBareJob,
  kInstall,
  kStatus,
  kStatusJson,
  kVersion,
  kHelp
};
constexpr int kCommands = 9;
constexpr const char* kCommandNames[kCommands] = {
    "--update-check", "--stat-callback", "--suicide", "--job", "--silent-update-check",
    "--status",       "--status --json", "--version", "--help"};

Command CommandOf(std::wstring_view arguments) {
  const auto has = [&](std::wstring_view text) { return arguments.find(text) != arguments.npos; };
  if (has(L"--suicide")) return kLastPing;
  if (has(L"--stat-callback")) return kPing;
  return has(L"--update-check") ? kCheck : kBareJob;
}

struct Victim {
  HANDLE process = nullptr;
  std::optional<int> command;  // of an executor
  fs::path diary;              // of a host
  std::string name;            // of a host
  bool isKilled = false;
  DWORD exitCode = 0;
};

// Everything that is found out, over all applications.
struct Findings {
  int kills = 0;
  std::array<int, kExports + 2> killsInCall = {};  // [0]: between two calls
  std::array<int, kCommands> killsOfCommand = {};
  long acknowledged = 0;
  int arrivedTwice = 0;
  int blocksLeft = 0;  // in work, without a job
  int neverThere = 0;  // hosts that the system did not bring to their first line
  ULONGLONG longestNextCall = 0;
  Complaints parse, lost, twice, next, end;
};

class Storm {
 public:
  explicit Storm(std::uint32_t seed) : random_(seed) {}

  void Run(int kills) {
    Dll().setExecutorPath(kNoExecutor);
    for (int number = 0; found_.kills < kills; ++number) {
      static constexpr Care kTurns[] = {Care::kKept,    Care::kLeftLast, Care::kKept,
                                        Care::kRemoved, Care::kKept,     Care::kKept};
      const Care care = kTurns[number % std::size(kTurns)];
      RunApplication("storm" + std::to_string(number), care, kills);
      Progress(std::to_string(found_.kills) + " kills, " + std::to_string(found_.acknowledged) +
               " values acknowledged, " + std::to_string(found_.arrivedTwice) + " arrived twice");
    }
  }

  const Findings& found() const { return found_; }

 private:
  void RunApplication(const std::string& appId, Care care, int kills) {
    const DataHome home;
    appId_ = appId;
    care_ = care;
    tried_.clear();
    acknowledged_.clear();
    locale_.clear();
    if (care == Care::kRemoved) {
      WriteBytes(home.AppFolder("stayer") / "appinfo.xml", "<appinfo><Remove>0</Remove></appinfo>");
    }
    if (!Register(appId, FeedUrl().c_str())) found_.next.Add("an application cannot register");
    Note("install", true);
    waiting_ = Jobs();
    for (int round = 0; round < kRoundsOfAnApplication && found_.kills < kills; ++round) {
      RunRound(appId + "." + std::to_string(round));
    }
    Settle();
  }

  void RunRound(const std::string& name) {
    std::array<Victim, kVictims> victims;
    At(name + ", starting");
    for (int i = 0; i < kVictims; ++i) {
      victims[i] = random_() % 5 < 3 ? NewHost(name + "." + std::to_string(i)) : NewExecutor();
    }
    std::vector<std::jthread> killers;
    for (Victim& victim : victims) {
      killers.emplace_back([&victim, moment = Choose(victim)] { KillAt(moment, &victim); });
    }
    At(name + ", killing");
    killers.clear();  // joins
    At(name + ", checking");
    Count(KillStrayExecutors(), &found_.killsOfCommand[kInstall]);
    CheckRound(name, victims);
    At(name + ", ending jobs");
    LimitJobs();
  }

  void AddEnd(const std::string& fault) {
    if (!fault.empty()) found_.end.Add(appId_ + ": " + fault);
  }

  // Work for the executors of the next round, and not more of it than they can list in short time.
  void LimitJobs() {
    // An application that stays removed takes the executor with it.
    const bool staysRemoved = care_ == Care::kLeftLast && random_() % 2 == 0;
    if (!staysRemoved && !Register(appId_, FeedUrl().c_str())) {
      found_.next.Add(appId_ + " cannot register");
    }
    waiting_ = Jobs();
    if (waiting_.size() < kFewJobs) {
      Dll().forceUpdateCheck(appId_.c_str(), false);
      waiting_ = Jobs();
    } else if (waiting_.size() > kManyJobs) {
      std::shuffle(waiting_.begin(), waiting_.end(), random_);
      waiting_.resize(waiting_.size() - kFewJobs);
      const ULONGLONG start = ::GetTickCount64();
      AddEnd(RunExecutors(waiting_));
      executorMilliseconds_ = static_cast<unsigned>((::GetTickCount64() - start) / waiting_.size());
      waiting_ = Jobs();
    }
  }

  Victim NewHost(const std::string& name) {
    Victim victim;
    victim.name = name;
    victim.diary = ProcessTempFolder() / (name + ".txt");
    HostPlan plan;
    plan.manner = care_ == Care::kKept ? Manner::kVictim : Manner::kLeaver;
    plan.appId = appId_;
    plan.name = name;
    plan.seed = static_cast<std::uint32_t>(random_());
    plan.focus = NextFocus();
    ++planned_[plan.focus];
    plan.diary = victim.diary;
    victim.process = StartHost(plan);
    return victim;
  }

  // The export that the fewest were killed in.
  int NextFocus() const {
    constexpr int kUninstall = 6;
    int least = 0;
    for (int call = 1; call <= kExports; ++call) {
      if (call == kUninstall && care_ == Care::kKept) continue;
      if (least == 0 ||
          found_.killsInCall[call] + planned_[call] < found_.killsInCall[least] + planned_[least]) {
        least = call;
      }
    }
    return least;
  }

  // Of what the waiting jobs offer, and what needs no job, the one that was killed least.
  Victim NewExecutor() {
    const std::wstring id = WidenUtf8(appId_);
    std::vector<std::pair<Command, std::wstring>> choice = {
        {kBareJob, L"--job {00000000-0000-0000-0000-000000000001}"},
        {kInstall, L"--appid " + id + L" --silent-update-check"},
        {kStatus, L"--status --appid " + id},
        {kStatusJson, L"--status --json"},
        {kVersion, L"--version"},
        {kHelp, L"--help"}};
    for (const JobFacts& job : waiting_) {
      const std::wstring arguments = ArgumentsOf(job);
      choice.emplace_back(CommandOf(arguments), arguments);
    }
    std::shuffle(choice.begin(), choice.end(), random_);
    const auto least = std::min_element(choice.begin(), choice.end(), [&](auto& a, auto& b) {
      return Weight(a.first) < Weight(b.first);
    });
    Victim victim;
    victim.command = least->first;
    victim.process = StartExecutor(least->second);
    return victim;
  }

  // Those that write are to be killed ten times as often as those that only print.
  int Weight(Command command) const {
    return found_.killsOfCommand[command] * (command >= kStatus ? 10 : 1);
  }

  // When a process is killed. A host has begun by then, and half of them have made some calls:
  // counted, since how many fit into a time depends on the machine. An executor ends by itself, so
  // its moment is chosen from the time that a whole run takes now.
  struct Moment {
    int callsReturned = 0;
    unsigned milliseconds = 0;  // after that
  };

  Moment Choose(const Victim& victim) {
    if (victim.command) return {0, static_cast<unsigned>(random_() % (executorMilliseconds_ + 20))};
    if (random_() % 2 == 0) return {0, static_cast<unsigned>(random_() % 60)};
    return {static_cast<int>(random_() % 12), static_cast<unsigned>(random_() % 30)};
  }

  static bool HasCome(const Moment& moment, const fs::path& diary) {
    const std::string text = ReadBytes(diary);
    return text.find("ready") != text.npos &&
           std::count(text.begin(), text.end(), '!') >= moment.callsReturned;
  }

  static void KillAt(const Moment& moment, Victim* victim) {
    if (!victim->process) return;
    const ULONGLONG latest = ::GetTickCount64() + kLongestWait;
    while (!victim->command && !HasCome(moment, victim->diary) && ::GetTickCount64() < latest) {
      if (::WaitForSingleObject(victim->process, 2) != WAIT_TIMEOUT) break;
    }
    ::WaitForSingleObject(victim->process, moment.milliseconds);
    ::TerminateProcess(victim->process, kKilled);
    victim->exitCode = EndOf(victim->process);
    victim->isKilled = victim->exitCode == kKilled;
  }

  void Count(int kills, int* counter) {
    found_.kills += kills;
    *counter += kills;
  }

  // A process that the system ended before its first line is none of ours; more than a few are.
  void AddEnd(const Victim& victim, bool wasThere, const Account& account) {
    const std::string how = victim.name + " ended by itself with " + HexText(victim.exitCode);
    Progress("  " + how);
    if (wasThere)
      found_.end.Add(how + ", in call " + std::to_string(account.unfinished));
    else if (++found_.neverThere > kFewStarts)
      found_.end.Add(how + ", before its first line");
  }

  void CheckRound(const std::string& name, const std::array<Victim, kVictims>& victims) {
    std::vector<Account> accounts;
    for (const Victim& victim : victims) {
      if (victim.command) {
        Count(victim.isKilled, &found_.killsOfCommand[*victim.command]);
        continue;
      }
      accounts.push_back(ReadDiary(victim.diary));
      const bool wasThere = fs::remove(victim.diary);
      const Account& account = accounts.back();
      if (account.failed > 0) found_.next.Add(victim.name + ": a call before the kill failed");
      if (!victim.isKilled) AddEnd(victim, wasThere, account);
      Count(victim.isKilled, &found_.killsInCall[account.unfinished]);
      for (const std::string& item : account.tried) ++tried_[item];
      for (const std::string& item : account.acknowledged) Acknowledge(item);
    }
    const Stores stores = ReadStores(appId_);
    for (const std::string& fault : stores.faults) found_.parse.Add(name + ": " + fault);
    CheckNothingIsLost(name, stores);
    CheckLocale(name, accounts, stores.locale);
    CheckNextCalls(name);
  }

  void Note(const std::string& item, bool succeeded) {
    ++tried_[item];
    if (succeeded) Acknowledge(item);
  }

  // A locale is a value that is replaced, not an item that is sent.
  void Acknowledge(const std::string& item) {
    if (item[0] == 'L') return;
    ++acknowledged_[item];
    ++found_.acknowledged;
  }

  // With the last application, what is known goes too.
  bool KeepsWhatIsKnown() const { return care_ != Care::kLeftLast; }

  void CheckNothingIsLost(const std::string& name, const Stores& stores) {
    if (!KeepsWhatIsKnown()) return;
    const auto isThere = [&](const std::string& item) {
      return stores.waiting.contains(item) || stores.inWork.contains(item) ||
             arrivals_.Of(appId_).contains(item);
    };
    arrivals_.Update();
    for (const auto& [item, times] : acknowledged_) {
      if (IsState(item) || isThere(item)) continue;
      // The web server writes its log when the answer is out.
      const auto hasArrived = [&] { return arrivals_.Update(), isThere(item); };
      if (!Eventually(hasArrived)) found_.lost.Add(name + ": " + item);
    }
  }

  // The locale is one that a host set last: not older than one whose call returned.
  void CheckLocale(const std::string& name, const std::vector<Account>& accounts,
                   const std::string& locale) {
    bool isKnown = locale == locale_;
    for (const Account& account : accounts) {
      std::vector<std::string> later = account.tried;
      std::erase_if(later, [](const std::string& item) { return item[0] != 'L'; });
      for (const std::string& item : account.acknowledged) {
        if (item[0] != 'L') continue;
        later.erase(later.begin(), std::find(later.begin(), later.end(), item));
        if (locale == locale_) isKnown = false;
      }
      if (std::find(later.begin(), later.end(), locale) != later.end()) isKnown = true;
    }
    if (!isKnown && care_ == Care::kKept) found_.lost.Add(name + ": locale '" + locale + "'");
  }

  void CheckNextCalls(const std::string& name) {
    const ULONGLONG start = ::GetTickCount64();
    const std::string item = "p" + name + ".next=1";
    locale_ = "L" + name + ".next";
    char text[64] = "";
    std::int32_t size = sizeof text;
    const bool isSet = Dll().setOptionalParam(appId_.c_str(), item.c_str()) == KUPDATE_S_OK &&
                       Dll().setLocale(appId_.c_str(), locale_.c_str()) == KUPDATE_S_OK &&
                       Dll().getLocale(appId_.c_str(), text, &size) == KUPDATE_S_OK &&
                       locale_ == text;
    Note(item, isSet);
    if (!isSet) found_.next.Add(name + ": a call failed, or the locale is '" + text + "'");
    found_.longestNextCall = std::max(found_.longestNextCall, ::GetTickCount64() - start);
  }

  // No more kills: what is known is sent, and compared with what was acknowledged.
  void Settle() {
    At(appId_ + ", sending all");
    AddEnd(RunExecutors(Jobs()));
    const Stores left = ReadStores(appId_);
    found_.blocksLeft += left.blocks;
    AgeBlocks(appId_);
    EndOf(StartExecutor(L"--job {00000000-0000-0000-0000-000000000001}"));
    if (ReadStores(appId_).blocks > 0) found_.end.Add(appId_ + ": an old block is not taken back");
    if (!Deliver({appId_})) found_.end.Add(appId_ + ": not all could be sent");
    arrivals_.Update();
    Compare(left.inWork);
  }

  void Compare(const Counts& orphans) {
    const Counts& arrived = arrivals_.Of(appId_);
    const auto countIn = [](const Counts& counts, const std::string& item) {
      const auto found = counts.find(item);
      return found == counts.end() ? 0 : found->second;
    };
    for (const auto& [item, times] : tried_) {
      if (item[0] == 'L') continue;
      const int came = countIn(arrived, item);
      // A block that was left in work was cut, sent or being taken back when its process died.
      const int allowed = times + countIn(orphans, item);
      if (came < countIn(acknowledged_, item) && KeepsWhatIsKnown()) {
        found_.lost.Add(appId_ + ": " + item + " came " + std::to_string(came) + " times");
      }
      if (came > allowed && (care_ == Care::kKept || !IsState(item))) {
        found_.twice.Add(appId_ + ": " + item + " came " + std::to_string(came) + " times of " +
                         std::to_string(allowed));
      }
      if (came > times && !IsState(item)) ++found_.arrivedTwice;
    }
  }

  static constexpr unsigned kKilled = 9;
  static constexpr ULONGLONG kLongestWait = 60000;

  std::mt19937 random_;
  Findings found_;
  Arrivals arrivals_;  // of this run
  std::string appId_;
  std::string locale_;
  Care care_ = Care::kKept;
  std::vector<JobFacts> waiting_;
  Counts tried_;
  Counts acknowledged_;
  std::array<int, kExports + 1> planned_ = {};  // how many hosts each export was the focus of
  unsigned executorMilliseconds_ = 200;
};

int Least(const int* counts, int size) { return *std::min_element(counts, counts + size); }

}  // namespace

bool RunKills(int kills, std::uint32_t seed) {
  Storm storm(seed);
  storm.Run(kills);
  const Findings& found = storm.found();
  for (int call = 1; call <= kExports; ++call) {
    Progress("killed in export " + std::to_string(call) + ": " +
             std::to_string(found.killsInCall[call]));
  }
  for (int command = 0; command < kCommands; ++command) {
    Progress(std::string("killed executors ") + kCommandNames[command] + ": " +
             std::to_string(found.killsOfCommand[command]));
  }
  Progress("restarts of the transfer service: " + std::to_string(Restarts()));
  const std::string tried = std::to_string(found.kills) + " kills, seed " + std::to_string(seed);
  const std::string values = std::to_string(found.acknowledged) + " values acknowledged";
  bool held =
      Row("after a kill every state file parses", tried, found.parse.Text(), found.parse.none());
  held &=
      Row("the next call succeeds, no lock stays stuck", tried,
          found.next.Text() + ", longest 3 calls " + std::to_string(found.longestNextCall) + " ms",
          found.next.none());
  held &= Row("no acknowledged value is lost", values, found.lost.Text(), found.lost.none());
  held &= Row("nothing is counted twice but what a killed process had in work", values,
              found.twice.Text() + ", " + std::to_string(found.arrivedTwice) + " came twice (" +
                  std::to_string(found.blocksLeft) + " blocks were left in work)",
              found.twice.none());
  held &= Row("in the end all jobs end and all is sent", tried,
              found.end.Text() + ", " + std::to_string(found.neverThere) +
                  " hosts that Wine did not start, " + std::to_string(SecondStarts()) +
                  " executors started again",
              found.end.none() && SecondStarts() <= kFewStarts);
  if (kills < kEnoughToMeetAll) return held;
  const int inExport = Least(&found.killsInCall[1], kExports);
  const int ofCommand = Least(found.killsOfCommand.data(), kCommands);
  return Row("all 17 exports and 9 command lines are met", tried,
             "at least " + std::to_string(inExport) + " kills in each export, " +
                 std::to_string(ofCommand) + " of each command line",
             inExport > 0 && ofCommand > 0) &&
         held;
}

}  // namespace storm
