#include "standin/job_file.h"

#include <cstdio>
#include <cstdlib>

#include "util/text.h"

namespace standin {
namespace {

// A value is the rest of its line, so it must not contain the end of a line. Bytes above 0x7F are
// parts of UTF-8 and stay.
std::string Escape(std::string_view value) {
  std::string escaped;
  for (const char c : value) {
    if (c != '%' && static_cast<unsigned char>(c) >= 0x20) {
      escaped += c;
      continue;
    }
    char code[4];
    std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned>(c));
    escaped += code;
  }
  return escaped;
}

std::string Unescape(std::string_view escaped) {
  std::string value;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    const bool coded = escaped[i] == '%' && i + 2 < escaped.size();
    if (!coded) {
      value += escaped[i];
      continue;
    }
    const std::string digits(escaped.substr(i + 1, 2));
    value += static_cast<char>(std::strtoul(digits.c_str(), nullptr, 16));
    i += 2;
  }
  return value;
}

class Writer {
 public:
  void Text(const char* key, std::string_view value) {
    text_ += key;
    text_ += ' ';
    text_ += Escape(value);
    text_ += '\n';
  }
  void Text(const char* key, const std::wstring& value) { Text(key, NarrowUtf8(value)); }
  // A missing line means "not set", which differs from an empty text.
  void Text(const char* key, const std::optional<std::wstring>& value) {
    if (value) Text(key, *value);
  }
  void Number(const char* key, std::uint64_t value) { Text(key, std::to_string(value)); }

  void Job(const JobRecord& job) {
    Text("job", job.id);
    Text("owner", job.owner);
    Text("state", StateName(static_cast<int>(job.state)));
    Text("name", job.settings.displayName);
    Number("priority", static_cast<std::uint64_t>(job.settings.priority));
    Number("no-progress-seconds", job.settings.noProgressSeconds);
    Number("notify-flags", job.settings.notifyFlags);
    Text("notify-program", job.settings.notifyProgram);
    Text("notify-parameters", job.settings.notifyParameters);
    if (job.settings.maxBytes) Number("max-bytes", *job.settings.maxBytes);
    Number("notice-due", job.noticeDue);
    Number("created", job.times.created);
    Number("modified", job.times.modified);
    Number("completed", job.times.completed);
    // As 32 bits: a negative code would become a number above those that ParseInt64 reads.
    Number("error-code", static_cast<std::uint32_t>(job.error.code));
    Number("error-context", static_cast<std::uint64_t>(job.error.context));
    Text("error-text", job.error.text);
    for (const JobFile& file : job.files) File(file);
  }
  std::string Take() { return std::move(text_); }

 private:
  void File(const JobFile& file) {
    Text("url", file.url);
    Text("path", file.path);
    Text("temp", file.tempPath);
    if (file.sizeBytes) Number("size", *file.sizeBytes);
    // The next server fetches an unfinished file from its start, so the bytes so far do not count.
    if (file.transferred) Number("done", file.doneBytes);
    Number("transferred", file.transferred);
    Number("handed-over", file.handedOver);
  }

  std::string text_;
};

void ReadFileValue(JobFile& file, std::string_view key, const std::string& value) {
  const auto number = static_cast<std::uint64_t>(ParseInt64(value));
  if (key == "path") file.path = WidenUtf8(value);
  if (key == "temp") file.tempPath = WidenUtf8(value);
  if (key == "size") file.sizeBytes = number;
  if (key == "done") file.doneBytes = number;
  if (key == "transferred") file.transferred = number == 1;
  if (key == "handed-over") file.handedOver = number == 1;
}

void ReadJobValue(JobRecord& job, std::string_view key, const std::string& value) {
  const auto number = static_cast<std::uint64_t>(ParseInt64(value));
  JobSettings& settings = job.settings;
  if (key == "owner") job.owner = value;
  if (key == "state") job.state = static_cast<JobState>(ParseState(value).value_or(0));
  if (key == "name") settings.displayName = WidenUtf8(value);
  if (key == "priority") settings.priority = static_cast<int>(number);
  if (key == "no-progress-seconds") {
    settings.noProgressSeconds = static_cast<std::uint32_t>(number);
  }
  if (key == "notify-flags") settings.notifyFlags = static_cast<std::uint32_t>(number);
  if (key == "notify-program") settings.notifyProgram = WidenUtf8(value);
  if (key == "notify-parameters") settings.notifyParameters = WidenUtf8(value);
  if (key == "max-bytes") settings.maxBytes = number;
  if (key == "notice-due") job.noticeDue = number == 1;
  if (key == "created") job.times.created = number;
  if (key == "modified") job.times.modified = number;
  if (key == "completed") job.times.completed = number;
  if (key == "error-code") job.error.code = static_cast<HResult>(number);
  if (key == "error-context") job.error.context = static_cast<int>(number);
  if (key == "error-text") job.error.text = value;
}

}  // namespace

std::string FormatJobs(const std::vector<JobRecord>& jobs) {
  Writer writer;
  for (const JobRecord& job : jobs) writer.Job(job);
  return writer.Take();
}

std::vector<JobRecord> ParseJobs(std::string_view text) {
  std::vector<JobRecord> jobs;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t blank = std::min(line.find(' '), line.size());
    const std::string_view key = line.substr(0, blank);
    const std::string value = Unescape(line.substr(std::min(blank + 1, line.size())));
    // A job's own values stand before its first file: behind "url" each value belongs to that file.
    if (key == "job") {
      jobs.emplace_back().id = value;
    } else if (jobs.empty()) {
      continue;
    } else if (key == "url") {
      jobs.back().files.emplace_back().url = WidenUtf8(value);
    } else if (jobs.back().files.empty()) {
      ReadJobValue(jobs.back(), key, value);
    } else {
      ReadFileValue(jobs.back().files.back(), key, value);
    }
  }
  return jobs;
}

}  // namespace standin
