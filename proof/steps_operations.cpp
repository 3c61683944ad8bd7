// The operations: all that hosts and executors do to state files, in one long life of two
// applications.
#include <string>

#include "appinfo/app_info2.h"
#include "executor/block_confirm.h"
#include "executor/executor_names.h"
#include "layout/folders.h"
#include "layout/names.h"
#include "proof/steps_world.h"
#include "stat/stat_ctrl.h"
#include "stat/uuid.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/files.h"
#include "util/mutex.h"
#include "util/registry.h"
#include "util/text.h"

namespace {

constexpr std::uint64_t kNow = 1'800'000'000;
constexpr char kBase[] = "http://h/?os=win";

// Two of them fill a block, and a few a page of the disk.
std::string Parameter(const std::string& token) {
  return "[" + token + "]" + std::string(700, 'x');
}

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

// An operation on one application's statistics, under their lock.
Operation OfStatistics(const char* name, const std::string& app,
                       const std::function<void(TStatCtrl&)>& edit) {
  return {name, Operation::kOneStep, [app, edit](Sent*) {
            Mutex lock(StatisticsMutexName(app));
            TStatCtrl statistics(app, &lock);
            edit(statistics);
          }};
}

Operation OfRecord(const char* name, Operation::Kind kind, const std::string& app,
                   const std::function<void(TAppInfo2&)>& edit) {
  return {name, kind, [app, edit](Sent*) {
            TAppInfo2 record(app);
            edit(record);
          }};
}

Operation Cut(const std::string& app) {
  return {"cut a block", Operation::kMoves, [app](Sent* sent) {
            Mutex lock(StatisticsMutexName(app));
            const auto block = TStatCtrl(app, &lock).GetPingUrl(kBase);
            if (block) *sent += app + '\t' + block->url + '\n';
          }};
}

Operation TakeBack(const std::string& app, int block) {
  Operation operation{"take a block back", Operation::kMoves, [app, block](Sent*) {
                        Mutex lock(StatisticsMutexName(app));
                        TStatCtrl(app, &lock).Rollback(block);
                      }};
  operation.takesBack = true;
  return operation;
}

Operation Confirm(const std::string& app, int block) {
  return {"confirm a block", Operation::kRepeatable, [app, block](Sent*) {
            Mutex lock(StatisticsMutexName(app));
            ConfirmBlock(app, block, &lock);
          }};
}

// Sends until the sender refuses its `refused`th block.
Operation Send(const char* name, const std::string& app, int refused) {
  return {name, Operation::kMoves, [app, refused](Sent* sent) {
            Mutex lock(StatisticsMutexName(app));
            TAppInfo2 record(app);
            int blocks = 0;
            TStatCtrl::SendStat(record, &lock, kNow,
                                [&](const std::string& id, const PingBlock& block) {
                                  if (++blocks == refused) return false;
                                  *sent += id + '\t' + block.url + '\n';
                                  return true;
                                });
          }};
}

Operation Judge(const char* name) {
  return {name, Operation::kRepeatable, [](Sent*) {
            TAppInfo2 record("app");
            TUpdInfo("app").Evaluate(record, LoadFeed(FeedPath()), kNow);
          }};
}

Operation Receive(const char* name, const char* version) {
  return {name, Operation::kOneStep,
          [version](Sent*) { FileSystem::WriteFile(FeedPath(), Feed(version)); }};
}

void AddRecords(std::vector<Operation>* all) {
  using Record = TAppInfo2&;
  for (const std::string app : kApplications) {
    all->push_back(OfRecord("first value", Operation::kOneStep, app,
                            [](Record r) { r.Write("ReportUrl", "http://h/report"); }));
    all->push_back(OfRecord("longer value", Operation::kOneStep, app,
                            [](Record r) { r.Write("Locale", std::string(6000, 'l')); }));
    all->push_back(OfRecord("shorter value", Operation::kOneStep, app,
                            [](Record r) { r.Write("Locale", "en"); }));
  }
  const std::string app = kApplications[0];
  all->push_back(
      OfRecord("version", Operation::kRepeatable, app, [](Record r) { r.SetVersion(1, 0, 0, 0); }));
  all->push_back(OfRecord("remove value", Operation::kOneStep, app,
                          [](Record r) { r.RemoveValue("Locale"); }));
  all->push_back(OfRecord("read values", Operation::kOneStep, app, [](Record r) {
    r.Read("Locale");
    r.ShouldCheck(kNow);
  }));
  all->push_back({"user id", Operation::kOneStep, [](Sent*) {
                    // Of a user for whom none was made yet.
                    JustUtil::RemoveValue(L"Software\\AppDataLow\\Krelix",
                                          TUuid::ProtectValueName());
                    TUuid::ReadUniqUserId();
                  }});
}

void AddStatistics(const std::string& app, std::vector<Operation>* all) {
  using Statistics = TStatCtrl&;
  const auto parameter = [&](const char* token) {
    return OfStatistics("parameter", app,
                        [=](Statistics s) { s.AddOptionalParam(Parameter(token)); });
  };
  all->insert(
      all->end(),
      {OfStatistics("state", app, [](Statistics s) { s.AddState(AppState::kInstall); }),
       parameter("p1"),
       parameter("p2"),
       parameter("p3"),
       OfStatistics("unique parameter", app, [](Statistics s) { s.SetUniqueParam("n=[u1]"); }),
       OfStatistics("action", app, [](Statistics s) { s.AddAction("[a1]"); }),
       OfStatistics("read statistics", app,
                    [](Statistics s) {
                      s.LastState();
                      s.LastParam();
                      s.GetUniqueParam("n");
                    }),
       Cut(app),
       TakeBack(app, 0),
       Cut(app),
       Confirm(app, 0),
       OfStatistics("state", app, [](Statistics s) { s.AddState(AppState::kUninstall); }),
       OfStatistics("unique parameter", app, [](Statistics s) { s.SetUniqueParam("n=[u2]"); }),
       parameter("p4"),
       parameter("p5"),
       Send("send, the second block refused", app, 2),
       parameter("p6"),
       parameter("p7"),
       Send("send all", app, 0),
       Confirm(app, 0),
       TakeBack(app, 1)});
}

void AddUpdates(std::vector<Operation>* all) {
  Operation forget{"delete the feed", Operation::kOneStep,
                   [](Sent*) { FileSystem::DeleteFile(FeedPath()); }};
  forget.isQuiet = true;
  all->insert(all->end(), {Receive("first feed", "2.0.0.0"), Judge("judge the first feed"), forget,
                           Receive("second feed", "10.20.30.40"), Judge("judge the second feed")});
}

}  // namespace

std::vector<Operation> Operations() {
  std::vector<Operation> all;
  AddRecords(&all);
  for (const std::string app : kApplications) AddStatistics(app, &all);
  AddUpdates(&all);
  return all;
}
