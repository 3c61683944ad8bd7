#include "appinfo/app_info2.h"
#include "executor/block_confirm.h"
#include "executor/executor_names.h"
#include "proof/steps/steps.h"
#include "stat/stat_ctrl.h"
#include "stat/uuid.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/files.h"
#include "util/mutex.h"
#include "util/registry.h"

/// One application, as hosts and executors reach it.
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

  const std::string app;
  Mutex lock;
  TAppInfo2 record;
  TStatCtrl statistics;
};

namespace {

using enum Kind;
using Text = const std::string&;

constexpr std::uint64_t kNow = 1'800'000'000;
constexpr std::uint64_t kLater = 1'900'000'000;

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

constexpr Verb kAddress{"first value", kOneStep,
                        [](Host& h, Text) { h.record.Write("ReportUrl", "http://h/report"); }};
constexpr Verb kLocale{"value", kOneStep,
                       [](Host& h, Text text) { h.record.Write("Locale", text); }};
constexpr Verb kNoLocale{"remove value", kOneStep,
                         [](Host& h, Text) { h.record.RemoveValue("Locale"); }};
constexpr Verb kVersion{"version", kRepeatable,
                        [](Host& h, Text) { h.record.SetVersion(1, 0, 0, 0); }};
constexpr Verb kReadRecord{"read values", kOneStep, [](Host& h, Text) {
                             h.record.Read("Locale");
                             h.record.ShouldCheck(kNow);
                           }};
constexpr Verb kUserId{"user id", kOneStep, [](Host&, Text) {
                         // Of a user for whom none was made yet.
                         JustUtil::RemoveValue(L"Software\\AppDataLow\\Krelix",
                                               TUuid::ProtectValueName());
                         TUuid::ReadUniqUserId();
                       }};

constexpr Verb kInstall{"install", kOneStep,
                        [](Host& h, Text) { h.statistics.AddState(AppState::kInstall); }};
constexpr Verb kUninstall{"uninstall", kOneStep,
                          [](Host& h, Text) { h.statistics.AddState(AppState::kUninstall); }};
// Two of them fill a block, and a few a page of the disk.
constexpr Verb kParameter{"parameter", kOneStep, [](Host& h, Text text) {
                            h.statistics.AddOptionalParam(h.Token(text) + std::string(700, 'x'));
                          }};
constexpr Verb kUnique{"unique parameter", kOneStep, [](Host& h, Text text) {
                         h.statistics.SetUniqueParam("n=" + h.Token(text));
                       }};
constexpr Verb kAction{"action", kOneStep,
                       [](Host& h, Text text) { h.statistics.AddAction(h.Token(text)); }};
constexpr Verb kReadStatistics{"read statistics", kOneStep, [](Host& h, Text) {
                                 h.statistics.LastState();
                                 h.statistics.LastParam();
                                 h.statistics.GetUniqueParam("n");
                               }};
constexpr Verb kCut{"cut a block", kMoves, [](Host& h, Text) {
                      if (const auto block = h.statistics.GetPingUrl("http://h/?os=win"))
                        NoteSent(block->url);
                    }};
constexpr Verb kTakeBack{"take a block back", kTakesBack,
                         [](Host& h, Text id) { h.statistics.Rollback(std::stoi(id)); }};
constexpr Verb kConfirm{"confirm a block", kRepeatable,
                        [](Host& h, Text id) { ConfirmBlock(h.app, std::stoi(id), &h.lock); }};
constexpr Verb kSend{"send", kMoves,
                     [](Host& h, Text refused) { h.Send(kNow, std::stoi(refused)); }};

constexpr Verb kReceive{"receive a feed", kOneStep, [](Host&, Text version) {
                          FileSystem::WriteFile(FeedPath(), Feed(version));
                        }};
constexpr Verb kJudge{"judge the feed", kRepeatable, [](Host& h, Text) {
                        TUpdInfo(h.app).Evaluate(h.record, LoadFeed(FeedPath()), kNow);
                      }};
constexpr Verb kForget{"delete the feed", kQuiet,
                       [](Host&, Text) { FileSystem::DeleteFile(FeedPath()); }};

}  // namespace

std::vector<Operation> Operations() {
  const std::vector<Operation> firstValues = {
      {kAddress}, {kLocale, std::string(6000, 'l')}, {kLocale, "en"}};
  const std::vector<Operation> moreValues = {{kVersion}, {kNoLocale}, {kReadRecord}, {kUserId}};
  const std::vector<Operation> statistics = {{kInstall},         {kParameter, "p1"},
                                             {kParameter, "p2"}, {kParameter, "p3"},
                                             {kUnique, "u1"},    {kAction, "a1"},
                                             {kReadStatistics},  {kCut},
                                             {kTakeBack, "0"},   {kCut},
                                             {kConfirm, "0"},    {kUninstall},
                                             {kUnique, "u2"},    {kParameter, "p4"},
                                             {kParameter, "p5"}, {kSend, "2"},
                                             {kParameter, "p6"}, {kParameter, "p7"},
                                             {kSend, "0"},       {kConfirm, "0"},
                                             {kTakeBack, "1"}};
  const std::vector<Operation> updates = {
      {kReceive, "2.0.0.0"}, {kJudge}, {kForget}, {kReceive, "10.20.30.40"}, {kJudge}};
  std::vector<Operation> all;
  const auto add = [&](const std::vector<Operation>& part, const std::string& app) {
    for (const Operation& each : part) all.push_back({each.verb, each.text, app});
  };
  for (const std::string& app : kApplications) add(firstValues, app);
  add(moreValues, "app");
  for (const std::string& app : kApplications) add(statistics, app);
  add(updates, "app");
  return all;
}

void Run(const Operation& operation) {
  Host host(operation.app);
  try {
    operation.verb.work(host, operation.text);
  } catch (const std::exception&) {
    // The refusal of a feed that cannot be read.
  }
}

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
