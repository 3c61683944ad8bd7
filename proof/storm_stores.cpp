#include "proof/storm_stores.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "layout/file_names.h"
#include "testing/data_home.h"
#include "testing/dll_client.h"
#include "xml/xml_node.h"

namespace storm {

namespace fs = std::filesystem;

namespace {

bool IsBlock(const std::string& fileName) { return fileName.starts_with("in_work_"); }

void CountItems(const XmlNode& root, Counts* counts) {
  for (const XmlNode* section = root.FirstChild(); section; section = section->Next()) {
    for (const XmlNode* item = section->FirstChild(); item; item = item->Next()) {
      if (item->Name() == kCdataNode) continue;
      ++(*counts)[std::string(item->Text())];
    }
  }
}

void ReadStore(const fs::path& file, Stores* stores) {
  const std::string name = file.filename().string();
  XmlNode root;
  try {
    root.Parse(ReadBytes(file));
  } catch (const exXML& error) {
    stores->faults.push_back(name + ": " + error.what());
    return;
  }
  const bool isRecord = name == "appinfo.xml" || name == "updinfo.xml";
  if (root.Name() != (isRecord ? "appinfo" : "statistics")) {
    stores->faults.push_back(name + ": its root is " + std::string(root.Name()));
  }
  if (name == "appinfo.xml") stores->locale = TextOf(root.FindChild("Locale"));
  if (name == "statistics.xml") CountItems(root, &stores->waiting);
  if (!IsBlock(name)) return;
  ++stores->blocks;
  CountItems(root, &stores->inWork);
}

fs::path LogFile() { return testing_dll::Setting(L"KUPDATE_ACCESS_LOG"); }

// The parts of `text` between the separators.
std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

}  // namespace

Stores ReadStores(const std::string& appId) {
  Stores stores;
  std::error_code gone;
  for (const auto& entry : fs::directory_iterator(testing_dll::DataFolder() / appId, gone)) {
    const fs::path& file = entry.path();
    if (file.extension() == ".bak") stores.faults.push_back(file.filename().string());
    if (file.extension() == ".xml") ReadStore(file, &stores);
  }
  return stores;
}

void AgeBlocks(const std::string& appId) {
  std::error_code gone;
  for (const auto& entry : fs::directory_iterator(testing_dll::DataFolder() / appId, gone)) {
    if (!IsBlock(entry.path().filename().string())) continue;
    fs::last_write_time(entry.path(), entry.last_write_time() - std::chrono::hours(16 * 24));
  }
}

Arrivals::Arrivals() : position_(ReadBytes(LogFile()).size()) {}

void Arrivals::Update() {
  std::ifstream log(LogFile(), std::ios::binary);
  log.seekg(static_cast<std::streamoff>(position_));
  const std::string text(std::istreambuf_iterator<char>(log), {});
  const std::size_t end = text.rfind('\n') + 1;  // a line that is being written comes next time
  position_ += end;
  for (const std::string& line : Split(text.substr(0, end), '\n')) Take(line);
}

// "GET /storm-report?krsoft=app&...&stat=dayuse&p1=1&action=a1,a2&fd=... 200 2"
void Arrivals::Take(const std::string& line) {
  const std::vector<std::string> words = Split(line, ' ');
  if (words.size() < 3 || words[0] != "GET" || words[2] != "200") return;
  const std::size_t query = words[1].find('?');
  if (query == std::string::npos) return;
  std::vector<std::string> parts = Split(words[1].substr(query + 1), '&');
  constexpr std::string_view kApp = "krsoft=";
  constexpr std::string_view kState = "stat=";
  constexpr std::string_view kActions = "action=";
  if (parts.empty() || !parts[0].starts_with(kApp)) return;
  Counts& counts = counts_[parts[0].substr(kApp.size())];
  for (const std::string& part : parts) {
    if (part.starts_with(kState)) {
      ++counts[part.substr(kState.size())];
    } else if (part.starts_with(kActions)) {
      for (const std::string& action : Split(part.substr(kActions.size()), ',')) ++counts[action];
    } else {
      ++counts[part];
    }
  }
}

}  // namespace storm
