#include "proof/steps_world.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <system_error>

#include "layout/folders.h"
#include "stat/stat_holder.h"
#include "util/diag_log.h"
#include "util/text.h"
#include "util/text_mode.h"
#include "xml/xml_node.h"

namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 3> kFolderNames = {"low", "roaming", "local"};
constexpr std::size_t kIdChars = 38;
constexpr char kMark[] = "--- an operation fails\n";

fs::path Utf8Path(std::string_view text) { return std::u8string(text.begin(), text.end()); }

fs::path ToPath(std::string text) {
#ifndef _WIN32
  std::replace(text.begin(), text.end(), '\\', '/');
#endif
  while (text.ends_with('/') || text.ends_with('\\')) text.pop_back();
  return Utf8Path(text);
}

std::string BytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool IsState(const fs::path& path) {
  const std::string extension = path.extension().string();
  return extension != ".new" && extension != ".bak" && extension != ".log";
}

// Calls `take` for everything below the folders.
void ForEachEntry(const std::function<void(const std::string&, const fs::path&)>& take) {
  const std::vector<fs::path> folders = StateFolders();
  for (std::size_t i = 0; i < folders.size(); ++i) {
    std::error_code missing;
    for (const auto& entry : fs::recursive_directory_iterator(folders[i], missing)) {
      const std::u8string below = entry.path().lexically_relative(folders[i]).generic_u8string();
      take(std::string(kFolderNames[i]) + "/" + std::string(below.begin(), below.end()),
           entry.path());
    }
  }
}

bool EndsWithFile(const std::string& name, const char* file) {
  return name.ends_with(std::string("/") + file);
}

bool HoldsValues(const std::string& name) {
  return EndsWithFile(name, "appinfo.xml") || EndsWithFile(name, "updinfo.xml");
}

using Values = std::map<std::string, std::string>;

bool ReadValues(const std::string& bytes, Values* values) {
  XmlNode root;
  if (!LoadXml(bytes, &root)) return false;
  for (const XmlNode* child = root.FirstChild(); child; child = child->Next()) {
    (*values)[std::string(child->Name())] = std::string(child->Value());
  }
  return true;
}

bool IsWhole(const std::string& name, std::string bytes) {
  if (EndsWithFile(name, "ui")) return bytes.size() == kIdChars;
  Values ignored;
  if (HoldsValues(name) || name.ends_with(".rss")) {
    return !bytes.empty() && ReadValues(bytes, &ignored);
  }
  DropCrBeforeLf(&bytes);
  try {
    return TStatHolder().ParseXML(bytes);
  } catch (const std::exception&) {
    return false;
  }
}

// Without folders, without the order of values, and without the id that is made anew each time.
Files Comparable(Files files, const Files& before) {
  std::erase_if(files, [](const auto& file) { return file.first.ends_with('/'); });
  for (auto& [name, bytes] : files) {
    Values values;
    if (!HoldsValues(name) || !ReadValues(bytes, &values)) continue;
    bytes.clear();
    for (const auto& [key, value] : values) bytes.append(key).append(1, '=').append(value + '\n');
  }
  const auto id = files.find("roaming/ui");
  if (id != files.end() && !before.contains("roaming/ui") && id->second.size() == kIdChars) {
    id->second = "an id";
  }
  return files;
}

bool AreSame(const Passage& passage, const Files& a, const Files& b) {
  return Comparable(a, passage.before) == Comparable(b, passage.before);
}

std::string BytesIn(const Files& files, const std::string& name) {
  const auto file = files.find(name);
  return file == files.end() ? std::string() : file->second;
}

// Each value is as it was or as it is to be.
bool HoldsOldOrNew(const std::string& name, const Passage& passage, const std::string& bytes) {
  Values left;
  Values old;
  Values wanted;
  ReadValues(bytes, &left);
  ReadValues(BytesIn(passage.before, name), &old);
  ReadValues(BytesIn(passage.after, name), &wanted);
  const auto isFrom = [](const auto& value, const Values& values) {
    const auto found = values.find(value.first);
    return found != values.end() && found->second == value.second;
  };
  for (const auto& value : left) {
    if (!isFrom(value, old) && !isFrom(value, wanted)) return false;
  }
  return std::all_of(old.begin(), old.end(), [&](const auto& value) {
    return left.contains(value.first) || !wanted.contains(value.first);
  });
}

std::string FaultOfMixture(const Passage& passage, const Files& left) {
  for (const auto& [name, bytes] : left) {
    if (name.ends_with('/') || name == "roaming/ui") continue;
    const bool isKnown =
        bytes == BytesIn(passage.before, name) || bytes == BytesIn(passage.after, name);
    if (isKnown) continue;
    if (HoldsValues(name)) {
      if (!HoldsOldOrNew(name, passage, bytes)) return name + " holds a value that is no one's";
    } else if (passage.operation.kind == Operation::kRepeatable) {
      return name + " is neither the old nor the new one";
    }
  }
  return {};
}

}  // namespace

std::vector<fs::path> StateFolders() {
  static const std::vector<fs::path> folders = {
      ToPath(GetUpdaterDataPath({})), ToPath(GetMakerFolder()),
      ToPath(NarrowUtf8(GetUpdaterLocalFolder({}, CreateFolder::kYes)))};
  return folders;
}

fs::path PathOf(const std::string& name) {
  const std::size_t slash = name.find('/');
  const auto folder = std::find(kFolderNames.begin(), kFolderNames.end(), name.substr(0, slash));
  const auto place = static_cast<std::size_t>(folder - kFolderNames.begin());
  return StateFolders().at(place) / Utf8Path(name.substr(slash + 1));
}

Files ReadState() {
  Files files;
  ForEachEntry([&](const std::string& name, const fs::path& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
      files[name + "/"];
    } else if (IsState(path)) {
      files[name] = BytesOf(path);
    }
  });
  return files;
}

void WriteState(const Files& files) {
  for (const fs::path& folder : StateFolders()) {
    std::error_code ignored;
    if (files.empty()) fs::remove_all(folder, ignored);
    for (const auto& entry : fs::directory_iterator(folder, ignored)) {
      fs::remove_all(entry.path(), ignored);
    }
  }
  for (const auto& [name, bytes] : files) {
    const fs::path path = PathOf(name);
    fs::create_directories(path.parent_path());
    if (name.ends_with('/')) continue;
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
}

int CountSiblings() {
  int count = 0;
  ForEachEntry(
      [&](const std::string&, const fs::path& path) { count += path.extension() == ".new"; });
  return count;
}

bool IsUndone(const Passage& passage, const Files& left) {
  return AreSame(passage, left, passage.before);
}

bool IsDone(const Passage& passage, const Files& left) {
  return AreSame(passage, left, passage.after);
}

std::string FaultOfFiles(const Passage& passage, const Files& left, const Outcome& outcome) {
  for (const auto& [name, bytes] : left) {
    if (!name.ends_with('/') && name != "roaming/ui" && !IsWhole(name, bytes)) {
      return name + " is not whole: " + std::to_string(bytes.size()) + " bytes";
    }
  }
  if (BytesIn(left, "roaming/ui") != BytesIn(passage.before, "roaming/ui") &&
      !IsWhole("roaming/ui", BytesIn(left, "roaming/ui"))) {
    return "the user's id is no id";
  }
  if (IsDone(passage, left)) return {};
  if (outcome.returned && !passage.operation.isQuiet && !outcome.isLogged) {
    return "a failure is not in the log";
  }
  if (IsUndone(passage, left)) return {};
  if (passage.operation.kind == Operation::kOneStep) return "a step between the two states";
  return FaultOfMixture(passage, left);
}

StepsLog::StepsLog(const fs::path& file) : file_(file) {
  DiagLog::Instance().Start([&] { return file.wstring(); }, "Log of the proof");
}

void StepsLog::Clear() const { std::ofstream(file_, std::ios::trunc); }

std::string StepsLog::Text() const { return BytesOf(file_); }

void StepsLog::Mark() const { std::ofstream(file_, std::ios::app) << kMark; }

bool StepsLog::TellsFailure(const Files& before) const {
  const std::string text = Text();
  const std::size_t mark = text.find(kMark);
  if (mark != text.npos) {
    constexpr std::size_t kTimeChars = 8;
    const std::size_t next = mark + std::size(kMark) - 1;
    return std::string_view(text)
        .substr(std::min(next + kTimeChars, text.size()))
        .starts_with(" E:");
  }
  for (const char* telling : {" E:FileSystem::WriteFile(", ": Can't delete file", ", postpone "}) {
    if (text.find(telling) != text.npos) return true;
  }
  // A file that is there and could not be opened. Stores name files with "\\" on every system.
  for (const auto& [name, bytes] : before) {
    std::string path = name.substr(name.find('/') + 1);
    std::replace(path.begin(), path.end(), '/', '\\');
    std::size_t line = 0;
    while ((line = text.find(" E:FileSystem::ReadFile(", line)) != text.npos) {
      const std::size_t end = std::min(text.find_first_of("\r\n", line), text.size());
      if (std::string_view(text).substr(line, end - line).ends_with('\\' + path)) return true;
      line = end;
    }
  }
  return false;
}

void Promise::Judge(const std::string& label, const std::string& fault) {
  if (fault.empty()) return;
  ++faults_;
  std::fprintf(stderr, "  FAULT  %s: %s\n", label.c_str(), fault.c_str());
}

bool Promise::Print(const std::string& unit) const {
  const bool held = tried_ > 0 && faults_ == 0;
  std::string found = std::to_string(faults_) + (faults_ == 1 ? " fault" : " faults");
  for (const auto& [what, count] : found_) found += "; " + std::to_string(count) + " " + what;
  std::printf("| %s | %d %s | %s | %s |\n", text_.c_str(), tried_, unit.c_str(), found.c_str(),
              held ? "yes" : "no");
  std::fflush(stdout);
  return held;
}
