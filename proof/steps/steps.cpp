// steps LOG: does to the stores of applications what the lines of its standard input say, "VERB APP
// TEXT", as hosts and executors would. Replies to each with a line. LOG receives the library's log
// and the addresses of reports.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "appinfo/app_info2.h"
#include "executor/block_confirm.h"
#include "executor/rendezvous.h"
#include "layout/folders.h"
#include "layout/names.h"
#include "proof/steps/hindrance.h"
#include "stat/stat_ctrl.h"
#include "stat/uuid.h"
#include "update/feed_file.h"
#include "update/upd_info.h"
#include "util/diag_log.h"
#include "util/files.h"
#include "util/mutex.h"
#include "util/registry.h"
#include "util/text.h"

namespace {

constexpr std::uint64_t kNow = 1'800'000'000;
constexpr std::uint64_t kLater = 1'900'000'000;

std::filesystem::path logFile;

void NoteSent(const std::string& address) {
  std::ofstream(logFile, std::ios::app) << "--- sent " << address << '\n';
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
  /// Returns what is wrong.
  std::string Probe();
  /// Sends what waits, one block for each state, and all of it arrives. Returns what is wrong.
  std::string Report();
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
  std::abort();
}

std::string Host::Probe() {
  record.Write("ReportUrl", "http://h/report");
  record.Write("Probe", "1");
  statistics.AddOptionalParam(Token("probe"));
  const bool areBack = record.Read("Probe") == "1" && statistics.LastParam() == Token("probe");
  return areBack ? "done" : "values do not come back";
}

std::string Host::Report() {
  for (const int block : Send(kLater, 0)) {
    if (!ConfirmBlock(app, block, &lock)) return "a block cannot be confirmed";
  }
  return "done";
}

void RunLine(const std::string& line) {
  std::istringstream input(line);
  std::string verb, app, text;
  input >> verb >> std::quoted(app) >> text;
  if (verb == "hinder") {
    Hinder(app, std::stoi(text));
    return Reply("done");
  }
  if (verb == "hinder-nothing") {
    HinderNothing();
    return Reply("done");
  }
  if (verb == "probe") return Reply(Host(app).Probe());
  if (verb == "report") return Reply(Host(app).Report());
  RunHindered([&] {
    try {
      Host(app).Do(verb, text);
    } catch (const std::exception&) {
      // The refusal of a feed that cannot be read.
    }
  });
}

}  // namespace

void Reply(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

int main(int count, char** arguments) {
  if (count != 2) return 2;
  logFile = arguments[1];
  DiagLog::Instance().Start([] { return logFile.wstring(); }, "Log of the proof");
  for (std::string line; std::getline(std::cin, line);) RunLine(line);
}
