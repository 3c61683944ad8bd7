#include <sstream>
#include <stdexcept>

#include "appinfo/app_info2.h"
#include "executor/block_confirm.h"
#include "executor/executor_names.h"
#include "layout/folders.h"
#include "layout/names.h"
#include "proof/steps/steps.h"
#include "stat/stat_ctrl.h"
#include "stat/uuid.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/files.h"
#include "util/mutex.h"
#include "util/registry.h"

namespace {

constexpr std::uint64_t kNow = 1'800'000'000;
constexpr std::uint64_t kLater = 1'900'000'000;

// The words are verbs of `Host`, some with a text: "verb:text".
constexpr char kFirstValues[] = "address long-locale locale";
constexpr char kMoreValues[] = "version no-locale read-locale should-check user-id";
constexpr char kStatistics[] =
    "install parameter:p1 parameter:p2 parameter:p3 unique:u1 action:a1 last-state last-parameter "
    "read-unique cut take-back:0 cut confirm:0 uninstall unique:u2 parameter:p4 parameter:p5 "
    "send:2 "
    "parameter:p6 parameter:p7 send:0 confirm:0 take-back:1";
constexpr char kUpdates[] = "receive:2.0.0.0 judge forget receive:10.20.30.40 judge";

const std::map<std::string, Kind> kKinds = {
    {"version", Kind::kRepeatable}, {"confirm", Kind::kRepeatable}, {"judge", Kind::kRepeatable},
    {"cut", Kind::kMoves},          {"send", Kind::kMoves},         {"take-back", Kind::kTakesBack},
    {"forget", Kind::kQuiet}};

std::string FeedPath() {
  return NarrowUtf8(GetUpdaterLocalFolder("app", CreateFolder::kYes)) + "version.rss";
}

std::string Feed(const std::string& version) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><rss version=\"2.0\"><channel><item>"
         "<title>Update " +
         version + "</title><guid>http://h/" + version + ".exe</guid><version:version>" + version +
         "</version:version><version:status>release</version:status><version:distsize>7"
         "</version:distsize><link>http://h/</link></item></channel></rss>";
}

// One application, as hosts and executors reach it.
struct Host {
  explicit Host(const std::string& id)
      : app(id), lock(StatisticsMutexName(id)), record(id), statistics(id, &lock) {}

  std::string Token(const std::string& name) const { return '[' + app + ": " + name + ']'; }
  // Sends blocks until the `refused`th is refused. Returns their ids.
  std::vector<int> Send(std::uint64_t now, int refused) {
    std::vector<int> ids;
    TStatCtrl::SendStat(record, &lock, now, [&](const std::string&, const PingBlock& block) {
      if (--refused == 0) return false;
      NoteSent(block.url);
      ids.push_back(block.id);
      return true;
    });
    return ids;
  }
  void Do(const std::string& verb, const std::string& text);

  const std::string app;
  Mutex lock;
  TAppInfo2 record;
  TStatCtrl statistics;
};

void Cut(TStatCtrl* statistics) {
  const auto block = statistics->GetPingUrl("http://h/?os=win");
  if (block) NoteSent(block->url);
}

// Of a user for whom none was made yet.
void MakeUserId() {
  JustUtil::RemoveValue(L"Software\\AppDataLow\\Krelix", TUuid::ProtectValueName());
  TUuid::ReadUniqUserId();
}

void Host::Do(const std::string& verb, const std::string& text) {
  if (verb == "address") return record.Write("ReportUrl", "http://h/report");
  if (verb == "long-locale") return record.Write("Locale", std::string(6000, 'l'));
  if (verb == "locale") return record.Write("Locale", "en");
  if (verb == "version") return record.SetVersion(1, 0, 0, 0);
  if (verb == "no-locale") return record.RemoveValue("Locale");
  if (verb == "read-locale") return void(record.Read("Locale"));
  if (verb == "should-check") return void(record.ShouldCheck(kNow));
  if (verb == "user-id") return MakeUserId();
  if (verb == "install") return statistics.AddState(AppState::kInstall);
  if (verb == "uninstall") return statistics.AddState(AppState::kUninstall);
  // Two of them fill a block, and a few a page of the disk.
  if (verb == "parameter") return statistics.AddOptionalParam(Token(text) + std::string(700, 'x'));
  if (verb == "unique") return statistics.SetUniqueParam("n=" + Token(text));
  if (verb == "action") return statistics.AddAction(Token(text));
  if (verb == "last-state") return void(statistics.LastState());
  if (verb == "last-parameter") return void(statistics.LastParam());
  if (verb == "read-unique") return void(statistics.GetUniqueParam("n"));
  if (verb == "cut") return Cut(&statistics);
  if (verb == "take-back") return statistics.Rollback(std::stoi(text));
  if (verb == "confirm") return void(ConfirmBlock(app, std::stoi(text), &lock));
  if (verb == "send") return void(Send(kNow, std::stoi(text)));
  if (verb == "receive") return void(FileSystem::WriteFile(FeedPath(), Feed(text)));
  if (verb == "judge") return void(TUpdInfo(app).Evaluate(record, LoadFeed(FeedPath()), kNow));
  if (verb == "forget") return FileSystem::DeleteFile(FeedPath());
  throw std::logic_error("no such verb: " + verb);
}

void Add(const std::string& app, const char* words, std::vector<Operation>* all) {
  std::istringstream stream(words);
  for (std::string word; stream >> word;) {
    const std::string verb = word.substr(0, word.find(':'));
    const std::string text = word == verb ? "" : word.substr(verb.size() + 1);
    const Kind kind = kKinds.contains(verb) ? kKinds.at(verb) : Kind::kOneStep;
    all->push_back({app, verb, text, kind});
  }
}

}  // namespace

std::vector<Operation> Operations() {
  std::vector<Operation> all;
  for (const char* app : kApplications) Add(app, kFirstValues, &all);
  Add("app", kMoreValues, &all);
  for (const char* app : kApplications) Add(app, kStatistics, &all);
  Add("app", kUpdates, &all);
  return all;
}

void Run(const Operation& operation) { Host(operation.app).Do(operation.verb, operation.text); }

std::string FaultOfStores(const std::string& app) {
  Host host(app);
  host.record.Write("ReportUrl", "http://h/report");
  host.record.Write("Probe", "1");
  host.statistics.AddOptionalParam(host.Token("probe"));
  const bool areBack =
      host.record.Read("Probe") == "1" && host.statistics.LastParam() == host.Token("probe");
  return areBack ? "" : "values do not come back: " + app;
}

std::string FaultOfReport(const std::string& app) {
  Host host(app);
  for (const int block : host.Send(kLater, 0)) {
    if (!ConfirmBlock(app, block, &host.lock)) return "a block cannot be confirmed: " + app;
  }
  return {};
}
