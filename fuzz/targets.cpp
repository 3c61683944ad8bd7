// What must hold for any input, by what reads it.
#include <algorithm>
#include <stdexcept>

#include "fuzz/fuzz.h"
#include "install/manifest.h"
#include "install/update_offer.h"
#include "layout/command_line.h"
#include "layout/folders.h"
#include "stat/clids.h"
#include "stat/stat_ctrl.h"
#include "testing/data_home.h"
#include "update/upd_info.h"
#include "util/text.h"
#include "xml/xml_node.h"

namespace {

namespace fs = std::filesystem;

// Cuts the first line off `text`; the whole text when it has one line.
std::string_view TakeLine(std::string_view* text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

// Whether `read` takes its input. It may refuse it by one of the exceptions that its callers catch.
bool IsTaken(const std::function<void()>& read) try {
  read();
  return true;
} catch (const std::invalid_argument&) {
  return false;
} catch (const char*) {  // a bad mask
  return false;
}

// --- identifiers: an application's file, and its vendor file ---

void FuzzClids(std::string_view input) {
  const std::string folder = GetMakerFolder();
  WriteBytes(NativePath(folder + "clids-app.xml"), input);
  WriteBytes(NativePath(folder + "vendor-specific-urlparam-app.txt"), input);
  TClids clids(kApp);
  clids.ParseFile(folder + "clids-app.xml");
  Check(clids.Slots()[0].text.empty() || clids.Numbered().contains(1), "slot 1 is number 1");
  Check(clids.Numbered().empty() || clids.Numbered().begin()->first > 0, "numbers begin at 1");
  Check(clids.VendorParam().size() <= 254, "the vendor's text is bounded");
}

// --- command lines: as a whole; the first line is also an id, the second a file ---

using enum CommandKind;
constexpr wchar_t kProgram[] = L"C:\\x --help --job {0}\\kupdate-exec.exe";

ExecutorCommand Read(const std::wstring& line) { return ParseExecutorCommand(line, kProgram); }

void CheckAnyLine(const std::wstring& line) {
  const ExecutorCommand c = Read(line);
  const bool endsJob = c.kind == kJob || c.kind == kUpdateCheck || c.kind == kStatCallback;
  Check(endsJob == !c.jobId.empty(), "a job is known to the operation that ends it");
  Check(c.appId.find(" --") == std::string::npos, "an id holds no switch");
  Check(c.blockId >= 0 && c.blockId <= 100, "a block has an in-work file");
}

void FuzzCommand(std::string_view input) {
  const std::wstring line = WidenUtf8(input);
  CheckAnyLine(line);
  CheckAnyLine(kProgram + (L' ' + line));
  const int block = static_cast<int>(input.size() % 101);
  const std::wstring id = WidenUtf8(TakeLine(&input)), file = WidenUtf8(TakeLine(&input));
  if ((id + file).find(L'"') != line.npos || (L' ' + id).find(L" --") != line.npos) return;
  const std::wstring job = L" --job {1}";
  const ExecutorCommand check = Read(kProgram + UpdateCheckArguments(id, file) + job);
  Check(check.kind == kUpdateCheck && check.file == file, "a check comes back");
  const ExecutorCommand ping = Read(kProgram + PingArguments(id, block, true) + job);
  Check(ping.kind == kStatCallback && ping.suicide && ping.blockId == block, "a ping comes back");
  const ExecutorCommand install = Read(SilentUpdateCommandLine(kProgram, id));
  Check(install.kind == kSilentUpdate, "an install comes back");
  for (const ExecutorCommand& c : {check, ping, install}) {
    Check(c.appId == NarrowUtf8(id), "the id comes back");
    Check(c.kind == kSilentUpdate || c.jobId == "{1}", "the job comes back");
  }
}

// --- feeds, judged for an application of version 1.2.3.4 ---

void FuzzFeed(std::string_view input) {
  WriteBytes(AppFile("appinfo.xml"),
             "<appinfo><VerMajor>1</VerMajor><VerMinor>2</VerMinor><VerSubver>3</VerSubver>"
             "<VerBuild>4</VerBuild><Platform>win</Platform><Locale>en</Locale></appinfo>");
  TAppInfo2 app(kApp);
  XmlNode feed;
  if (!LoadXml(std::string(input), &feed)) return;
  bool isFound = false;
  IsTaken([&] { isFound = TUpdInfo(kApp).Evaluate(app, std::move(feed), 1); });
  Check(isFound == fs::exists(AppFile("updinfo.xml")), "an update is written or none is");
  if (!isFound) return;
  const TUpdInfo update(kApp);
  const VersionNumber version =
      MakeVersion(update.VerMajor(), update.VerMinor(), update.VerSubver(), update.VerBuild());
  Check(version > MakeVersion(1, 2, 3, 4), "an update is newer");
  for (const char* key : {"DistroStarter", "MSIArgs", "Title", "Description"}) {
    const std::string text = update.Read(key);
    Check(IsValidUtf8(text) && text.size() <= 65536, "texts are UTF-8 and bounded");
  }
  const auto offer = ReadOffer(kApp);
  Check(!offer || offer->version == version, "an update is offered as what it is");
}

// --- manifests ---

void FuzzManifest(std::string_view input) {
  Manifest m;
  if (!ParseManifest(input, &m).empty()) return;
  Check(input.starts_with(m.signedText + "signature: "), "all but the signature is signed");
  Check(input.size() <= kMaxManifestBytes, "it is bounded");
}

// --- offers: lines are an address and its redirection; as a whole the record of an update ---

void CheckAddress(std::string_view url) {
  Check(url.size() <= kMaxAddressBytes, "an address is bounded");
  Check(std::all_of(url.begin(), url.end(), [](char c) { return c > ' ' && c < '\x7F'; }),
        "an address is printable ASCII");
  Check(url.find_first_of("@#\\\"<>") == url.npos, "an address names no user and no fragment");
  Check(url.find("://") <= 5 && url.substr(url.find("://") + 3, 1) != "/", "an address has a host");
}

void FuzzOffer(std::string_view input) {
  WriteBytes(AppFile("updinfo.xml"), input);
  const auto offer = ReadOffer(kApp);
  Check(!offer || !offer->url.empty(), "an offer has an address");
  const std::string_view url = TakeLine(&input), location = TakeLine(&input);
  if (!IsFetched(url)) return;
  CheckAddress(url);
  const std::string to = RedirectedAddress(url, location);
  if (!to.empty()) CheckAddress(to);
}

// --- statistics: the file of what waits ---

// What a file with the holder's content holds when it is read again.
std::string Stored(const TStatHolder& holder) {
  TStatHolder stored;
  Check(stored.ParseXML(holder.MakeXML()), "a written file is whole");
  return stored.MakeXML();
}

// Cuts blocks and takes them back. Each block takes the time of all that waits, and no kind of
// damage needs more than two.
void FuzzStat(std::string_view input) {
  TStatHolder holder;
  if (!IsTaken([&] { holder.ParseXML(std::string(input)); })) return;
  holder.Merge(TStatHolder());                       // leaves one dayuse
  if (!holder.Confirmed()) holder.SetFirstDate({});  // alone it is nothing
  const std::string file = AppFile("statistics.xml").string(), before = Stored(holder);
  Check(holder.Save(file), "statistics are saved");
  TStatCtrl statistics(kApp, nullptr);
  int blocks = 0;
  const std::string url = "http://example.com/?" + std::string(input.size() * 37 % 950, 'x');
  while (blocks < 2 && statistics.GetPingUrl(url)) ++blocks;
  while (blocks > 0) statistics.Rollback(--blocks);
  TStatHolder after;
  Check(after.Load(file) && after.MakeXML() == before, "nothing is lost");
  Check(!fs::exists(AppFile("in_work_0.xml")), "a block that was taken back is gone");
}

// --- versions: the first line is a mask ---

void FuzzVersion(std::string_view input) {
  std::vector<std::string> parts;
  const std::string mask(TakeLine(&input));
  IsTaken([&] { ParseVersionMask(mask, &parts); });
  VersionNumber version = 0;
  if (!IsTaken([&] { version = ParseVersion(input); })) return;
  const std::string written = FormatVersion(version);
  Check(ParseVersion(written) == version, "a version is written as it was read");
  ParseVersionMask(written, &parts);
  Check(MaskToVersion(parts, 7) == version, "a version is its own mask");
}

// --- XML ---

// Some blanks beside tags are not kept, while others indent.
std::string WithoutBlanks(std::string text) {
  std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || !c; });
  return text;
}

// What was parsed, whole or not, is written so that it parses again and is the same.
void FuzzXml(std::string_view input) {
  XmlNode tree;
  try {
    tree.Parse(std::string(input));
  } catch (const exXML& error) {
    Check(error.position() <= input.size(), "an error lies within the input");
  }
  // A written text is indented: up to 512 blanks for an element of four bytes.
  StopCounting();
  const std::string text = tree.Serialise();
  XmlNode again;
  again.Parse(text);
  Check(again.CodePage() == tree.CodePage(), "the code page stays");
  Check(WithoutBlanks(again.Serialise()) == WithoutBlanks(text), "what is parsed is written");
}

}  // namespace

const std::map<std::string, FuzzTarget> kFuzzTargets = {
    {"clids", FuzzClids},       {"command", FuzzCommand}, {"feed", FuzzFeed},
    {"manifest", FuzzManifest}, {"offer", FuzzOffer},     {"stat", FuzzStat},
    {"version", FuzzVersion},   {"xml", FuzzXml}};
