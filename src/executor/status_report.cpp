#include "executor/status_report.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "util/text.h"

namespace {

std::string TimeText(std::uint64_t seconds) {
  const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(time - day).count();
  std::string text = PaddedText(static_cast<int>(date.year()), 4);
  const auto add = [&](const char* before, unsigned value) {
    text.append(before).append(PaddedText(static_cast<int>(value), 2));
  };
  add("-", static_cast<unsigned>(date.month()));
  add("-", static_cast<unsigned>(date.day()));
  add(" ", static_cast<unsigned>(minutes / 60));
  add(":", static_cast<unsigned>(minutes % 60));
  return text += " UTC";
}

std::string DueText(std::uint64_t due, std::uint64_t now) {
  return due <= now ? "due now" : TimeText(due);
}

std::string_view OrDash(std::string_view text) { return text.empty() ? "-" : text; }

std::string Blocks(const std::vector<int>& blocks) {
  std::string text;
  for (const int block : blocks) text.append(text.empty() ? "" : ", ").append(DecimalText(block));
  return text.empty() ? "-" : text;
}

// "name   value" and a line feed.
void AddRow(std::string* text, std::string_view name, std::string_view value) {
  constexpr std::size_t kNameChars = 18;
  text->append("  ").append(name).append(kNameChars - name.size(), ' ').append(value) += '\n';
}

void AddApp(std::string* text, const AppStatus& app, std::uint64_t now) {
  text->append("\nApplication \"").append(app.id).append(app.removed ? "\", removed\n" : "\"\n");
  AddRow(text, "version", OrDash(app.version));
  AddRow(text, "channel", app.channel);
  AddRow(text, "executor", app.executor.empty() ? "the default one" : app.executor);
  AddRow(text, "next check", app.removed ? "never" : DueText(app.nextCheck, now));
  AddRow(text, "next ping", DueText(app.nextPing, now));
  AddRow(text, "update found", OrDash(app.update));
  AddRow(text, "statistics wait", app.statisticsWait ? "yes" : "no");
  AddRow(text, "blocks in work", Blocks(app.blocksInWork));
  AddRow(text, "last error", OrDash(app.lastError));
}

void AddJob(std::string* text, const JobStatus& job) {
  text->append("\nJob ").append(job.id) += '\n';
  AddRow(text, "purpose", job.appId.empty() ? job.purpose : job.purpose + " of " + job.appId);
  AddRow(text, "state", job.state);
  AddRow(text, "created", TimeText(job.created));
  AddRow(text, "error", job.error == 0 ? "-" : HexText(job.error));
}

std::string Quoted(std::string_view text) {
  std::string json = "\"";
  // There and back, so that bytes that are no UTF-8 become U+FFFD: JSON has no other form for them.
  for (const char c : NarrowUtf8(WidenUtf8(text))) {
    if (c == '"' || c == '\\') {
      json += '\\';
      json += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      // Two digits are enough below 0x20, and HexText leaves out a leading zero.
      const std::string digits = HexText(static_cast<unsigned char>(c)).substr(2);
      json += "\\u" + std::string(4 - digits.size(), '0') + digits;
    } else {
      json += c;
    }
  }
  return json + '"';
}

// The members of one object, in the order in which they are added.
class JsonObject {
 public:
  JsonObject& Text(std::string_view name, std::string_view value) {
    return Raw(name, Quoted(value));
  }
  JsonObject& Number(std::string_view name, std::uint64_t value) {
    return Raw(name, DecimalText(static_cast<std::int64_t>(value)));
  }
  JsonObject& Flag(std::string_view name, bool value) {
    return Raw(name, value ? "true" : "false");
  }
  JsonObject& Raw(std::string_view name, const std::string& value) {
    text_.append(text_.empty() ? "{" : ",").append(Quoted(name)).append(":").append(value);
    return *this;
  }
  std::string Close() const { return text_ + "}"; }

 private:
  std::string text_;
};

template <class Items, class ToJson>
std::string JsonArray(const Items& items, ToJson toJson) {
  std::string json;
  for (const auto& item : items) json.append(json.empty() ? "[" : ",").append(toJson(item));
  return json.empty() ? "[]" : json + "]";
}

std::string JsonApp(const AppStatus& app) {
  return JsonObject()
      .Text("id", app.id)
      .Text("version", app.version)
      .Text("channel", app.channel)
      .Flag("removed", app.removed)
      .Text("executor", app.executor)
      .Number("nextCheck", app.nextCheck)
      .Number("nextPing", app.nextPing)
      .Text("update", app.update)
      .Flag("statisticsWait", app.statisticsWait)
      .Raw("blocksInWork", JsonArray(app.blocksInWork, [](int id) { return DecimalText(id); }))
      .Text("lastError", app.lastError)
      .Close();
}

std::string JsonJob(const JobStatus& job) {
  return JsonObject()
      .Text("id", job.id)
      .Text("purpose", job.purpose)
      .Text("appId", job.appId)
      .Text("state", job.state)
      .Number("created", job.created)
      .Number("error", job.error)
      .Close();
}

}  // namespace

std::string LastErrorIn(std::string_view log) {
  constexpr std::string_view kLevel = " E:";
  constexpr std::size_t kTimeChars = 8;  // "hh:mm:ss"
  std::string_view found;
  while (!log.empty()) {
    const std::string_view line = log.substr(0, log.find('\n'));
    log.remove_prefix(std::min(line.size() + 1, log.size()));
    // Files and keys that cannot be opened are left out: most do not exist before they are first
    // written.
    if (line.find(kLevel) == kTimeChars && line.find(": Can't open ") == line.npos) {
      found = line.substr(kTimeChars + 1);
    }
  }
  return std::string(found);
}

std::string ReadableStatus(const StatusReport& report, std::uint64_t now) {
  std::string text = report.program;
  text.append(" ").append(report.version) += '\n';
  AddRow(&text, "installs", report.trust);
  AddRow(&text, "transfer service", report.serviceAnswers ? "answers" : "does not answer");
  for (const AppStatus& app : report.apps) AddApp(&text, app, now);
  if (report.apps.empty()) text += "\nNo application is registered.\n";
  for (const JobStatus& job : report.jobs) AddJob(&text, job);
  if (report.jobs.empty()) text += "\nNo job is in the transfer service.\n";
  return text;
}

std::string JsonStatus(const StatusReport& report) {
  return JsonObject()
             .Text("program", report.program)
             .Text("version", report.version)
             .Text("trust", report.trust)
             .Flag("serviceAnswers", report.serviceAnswers)
             .Raw("applications", JsonArray(report.apps, JsonApp))
             .Raw("jobs", JsonArray(report.jobs, JsonJob))
             .Close() +
         "\n";
}
