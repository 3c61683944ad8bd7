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

  void NoteSent(const PingBlock& block) const { Note(kSentNote + app + '\t' + block.url); }
  // Sends until the `refused`th block is refused.
  void Send(int refused) {
    TStatCtrl::SendStat(record, &lock, kNow, [&](const std::string&, const PingBlock& block) {
      if (--refused == 0) return false;
      NoteSent(block);
      return true;
    });
  }

  static constexpr std::uint64_t kNow = 1'800'000'000;
  const std::string app;
  Mutex lock;
  TAppInfo2 record;
  TStatCtrl statistics;
};

namespace {

using enum Operation::Kind;

std::vector<Operation> WriteRecord() {
  return {
      {"first value", kOneStep, [](Host& h) { h.record.Write("ReportUrl", "http://h/report"); }},
      {"longer value", kOneStep, [](Host& h) { h.record.Write("Locale", std::string(6000, 'l')); }},
      {"shorter value", kOneStep, [](Host& h) { h.record.Write("Locale", "en"); }}};
}

std::vector<Operation> ChangeRecord() {
  const auto readValues = [](Host& h) {
    h.record.Read("Locale");
    h.record.ShouldCheck(Host::kNow);
  };
  const auto makeUserId = [](Host&) {
    // Of a user for whom none was made yet.
    JustUtil::RemoveValue(L"Software\\AppDataLow\\Krelix", TUuid::ProtectValueName());
    TUuid::ReadUniqUserId();
  };
  return {{"version", kRepeatable, [](Host& h) { h.record.SetVersion(1, 0, 0, 0); }},
          {"remove value", kOneStep, [](Host& h) { h.record.RemoveValue("Locale"); }},
          {"read values", kOneStep, readValues},
          {"user id", kOneStep, makeUserId}};
}

Operation State(AppState state) {
  return {"state", kOneStep, [state](Host& h) { h.statistics.AddState(state); }};
}

// Two of them fill a block, and a few a page of the disk.
Operation Parameter(const char* token) {
  return {"parameter", kOneStep, [token](Host& h) {
            h.statistics.AddOptionalParam('[' + std::string(token) + ']' + std::string(700, 'x'));
          }};
}

Operation Unique(const char* text) {
  return {"unique parameter", kOneStep, [text](Host& h) { h.statistics.SetUniqueParam(text); }};
}

Operation Cut() {
  return {"cut a block", kMoves, [](Host& h) {
            const auto block = h.statistics.GetPingUrl("http://h/?os=win");
            if (block) h.NoteSent(*block);
          }};
}

Operation TakeBack(int block) {
  return {"take a block back", kTakesBack, [block](Host& h) { h.statistics.Rollback(block); }};
}

Operation Confirm(int block) {
  return {"confirm a block", kRepeatable,
          [block](Host& h) { ConfirmBlock(h.app, block, &h.lock); }};
}

std::vector<Operation> ChangeStatistics() {
  const auto readStatistics = [](Host& h) {
    h.statistics.LastState();
    h.statistics.LastParam();
    h.statistics.GetUniqueParam("n");
  };
  return {State(AppState::kInstall),
          Parameter("p1"),
          Parameter("p2"),
          Parameter("p3"),
          Unique("n=[u1]"),
          {"action", kOneStep, [](Host& h) { h.statistics.AddAction("[a1]"); }},
          {"read statistics", kOneStep, readStatistics},
          Cut(),
          TakeBack(0),
          Cut(),
          Confirm(0),
          State(AppState::kUninstall),
          Unique("n=[u2]"),
          Parameter("p4"),
          Parameter("p5"),
          {"send, the second block refused", kMoves, [](Host& h) { h.Send(2); }},
          Parameter("p6"),
          Parameter("p7"),
          {"send all", kMoves, [](Host& h) { h.Send(0); }},
          Confirm(0),
          TakeBack(1)};
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

Operation Receive(const char* version) {
  return {"receive a feed", kOneStep,
          [version](Host&) { FileSystem::WriteFile(FeedPath(), Feed(version)); }};
}

Operation Judge() {
  return {"judge the feed", kRepeatable,
          [](Host& h) { TUpdInfo(h.app).Evaluate(h.record, LoadFeed(FeedPath()), Host::kNow); }};
}

std::vector<Operation> FindUpdates() {
  return {Receive("2.0.0.0"),
          Judge(),
          {"delete the feed", kQuiet, [](Host&) { FileSystem::DeleteFile(FeedPath()); }},
          Receive("10.20.30.40"),
          Judge()};
}

}  // namespace

std::vector<Operation> Operations() {
  std::vector<Operation> all;
  const auto add = [&](std::vector<Operation> (*make)(), const char* app) {
    for (Operation& operation : make()) {
      operation.app = app;
      all.push_back(std::move(operation));
    }
  };
  for (const char* app : kApplications) add(WriteRecord, app);
  add(ChangeRecord, "app");
  for (const char* app : kApplications) add(ChangeStatistics, app);
  add(FindUpdates, "app");
  return all;
}

void Run(const Operation& operation) {
  Host host(operation.app);
  try {
    operation.work(host);
  } catch (const std::exception&) {
    // The refusal of a feed that cannot be read.
  }
}

std::string FaultOfGoingOn(const std::string& app) {
  constexpr std::uint64_t kLater = 1'900'000'000;
  constexpr int kMostReports = 20;
  Host host(app);
  host.record.Write("ReportUrl", "http://h/report");
  host.record.Write("Probe", "1");
  if (host.record.Read("Probe") != "1") return "a value does not come back: " + app;
  host.statistics.AddOptionalParam("[probe]");
  if (host.statistics.LastParam() != "[probe]") return "a parameter does not come back: " + app;
  std::vector<int> blocks;
  const auto send = [&](const std::string&, const PingBlock& block) {
    host.NoteSent(block);
    blocks.push_back(block.id);
    return true;
  };
  // A block needs a state, and each report adds one.
  for (int reports = 0; reports == 0 || (reports < kMostReports && IsWaiting(app)); ++reports) {
    TStatCtrl::SendStat(host.record, &host.lock, kLater, send);
  }
  for (const int block : blocks) {
    if (!ConfirmBlock(app, block, &host.lock)) return "a block cannot be confirmed: " + app;
  }
  return {};
}
