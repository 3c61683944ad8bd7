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
#include "util/text_mode.h"
#include "xml/xml_node.h"

namespace {

namespace fs = std::filesystem;

// Cuts the first line off `text`; the whole text when it has one line.
std::string_view TakeLine(std::string_view* text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

// Whether `read` takes its input. It may refuse it by an exception that begins with the message.
bool IsTaken(std::string_view message, const std::function<void()>& read) try {
  read();
  return true;
} catch (const std::invalid_argument& refusal) {
  Check(std::string_view(refusal.what()).starts_with(message), "the message is the known one");
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
  int number = 0;
  for (const TClids::Clid& slot : clids.Slots()) {
    Check((slot.text.empty() && slot.vid.empty()) || clids.Numbered().contains(number + 1),
          "an identifier in a slot has a number too");
    ++number;
  }
  Check(clids.Numbered().empty() || clids.Numbered().begin()->first > 0, "numbers begin at 1");
  Check(clids.ReadClids().starts_with(clids.Slots()[0].text), "the identifier is the first slot's");
  Check(clids.VendorParam().size() <= 254, "the vendor's text is bounded");
}

// --- command lines: as a whole; the first line is also an id, the second a file ---

using enum CommandKind;
constexpr wchar_t kProgram[] = L"C:\\x --help --job {0}\\kupdate-exec.exe";

ExecutorCommand Read(const std::wstring& line) { return ParseExecutorCommand(line, kProgram); }

void CheckAnyLine(const std::wstring& line) {
  const ExecutorCommand c = Read(line);
  const bool endsJob = c.kind == kJob || c.kind == kUpdateCheck || c.kind == kStatCallback;
  const bool needsApp = c.kind == kSilentUpdate || (endsJob && c.kind != kJob);
  Check(!needsApp || c.hasAppId, "an operation has its application");
  Check(!endsJob || !c.jobId.empty(), "who ends a job knows it");
  Check(c.kind != kNone || c.jobId.empty(), "no job is forgotten");
  Check(c.hasAppId || c.appId.empty(), "no id without its switch");
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

enum class Outcome { kRefused, kNothing, kFound };

Outcome Evaluate(std::string_view bytes, bool wantUnstable) {
  constexpr std::uint64_t kNow = 1'700'000'000;
  RemoveAppFiles();
  WriteBytes(AppFile("appinfo.xml"),
             "<appinfo><VerMajor>1</VerMajor><VerMinor>2</VerMinor><VerSubver>3</VerSubver>"
             "<VerBuild>4</VerBuild><Platform>win</Platform><Locale>en</Locale><WantUnstableToo>" +
                 DecimalText(wantUnstable ? 1 : 0) + "</WantUnstableToo></appinfo>");
  TAppInfo2 app(kApp);
  XmlNode feed;
  if (!LoadXml(std::string(bytes), &feed)) return Outcome::kRefused;
  bool found = false;
  IsTaken("", [&] { found = TUpdInfo(kApp).Evaluate(app, std::move(feed), kNow); });
  const bool checked = app.ReadNumber("LastCheckTime") == kNow;
  Check(checked || !found, "a check that found an update was made");
  Check(found == fs::exists(AppFile("updinfo.xml")), "an update is written or none is");
  return found ? Outcome::kFound : checked ? Outcome::kNothing : Outcome::kRefused;
}

// The version of the update that was written down.
VersionNumber CheckUpdate(bool wantUnstable) {
  XmlNode root;
  Check(LoadXml(ReadBytes(AppFile("updinfo.xml")), &root), "the store is whole");
  const TUpdInfo update(kApp);
  const VersionNumber version =
      MakeVersion(update.VerMajor(), update.VerMinor(), update.VerSubver(), update.VerBuild());
  Check(version > MakeVersion(1, 2, 3, 4), "an update is newer");
  Check(wantUnstable || update.ReadNumber("VersionStatus") >= VS_RELEASE, "it is a release");
  for (const char* key : {"DistroStarter", "MSIArgs", "Title", "Description"}) {
    const std::string text = update.Read(key);
    Check(IsValidUtf8(text) && text.size() <= 65536, "texts are UTF-8 and bounded");
  }
  const auto offer = ReadOffer(kApp);
  Check(!offer == update.Read("DistroUrl").empty(), "an update with address is offered");
  Check(!offer || offer->version == version, "as what it is");
  return version;
}

void FuzzFeed(std::string_view input) {
  const Outcome stable = Evaluate(input, false);
  const VersionNumber release = stable == Outcome::kFound ? CheckUpdate(false) : 0;
  const Outcome any = Evaluate(input, true);
  Check((stable == Outcome::kRefused) == (any == Outcome::kRefused), "a feed is good for all");
  Check(stable != Outcome::kFound || any == Outcome::kFound, "a release is there for all");
  if (any == Outcome::kFound) Check(CheckUpdate(true) >= release, "unstable ones give no less");
}

// --- manifests ---

void FuzzManifest(std::string_view input) {
  Manifest m;
  if (!ParseManifest(input, &m).empty()) return;
  Check(input.starts_with(m.signedText + "signature: "), "all but the signature is signed");
  Check(input.find('\n', m.signedText.size()) + 1 == input.size(), "nothing is behind it");
  Check(input.size() <= kMaxManifestBytes, "it is bounded");
  Check(m.size > 0 && m.size <= kMaxFileBytes, "a file has a size");
  UpdateOffer offer{m.app, m.version, {}, {}, m.size, m.starter, m.args, m.mayElevate};
  LocalRecord record{0, m.platform, {}, !m.isBeta};
  Check(FaultOf(m, offer, record, m.expiresAt - 1).empty(), "it vouches for its own offer");
  Check(!FaultOf(m, offer, record, m.expiresAt).empty(), "and not for ever");
  record.platform += 'x';
  Check(FaultOf(m, offer, record, 0).empty() == m.platform.empty(), "and for no other platform");
  ++offer.version;
  record.platform = m.platform;
  Check(!FaultOf(m, offer, record, 0).empty(), "and for no other version");
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
  Check(!offer || offer->size <= INT64_MAX, "its size is a size");
  const std::string_view url = TakeLine(&input), location = TakeLine(&input);
  if (!IsFetched(url)) return;
  CheckAddress(url);
  const std::string to = RedirectedAddress(url, location);
  if (to.empty()) return;
  CheckAddress(to);
  Check(IsFetched(to) && to.ends_with(location), "a redirection goes where the server says");
  if (!location.starts_with('/') || location.starts_with("//")) return;
  Check(url.starts_with(to.substr(0, to.size() - location.size())), "a path stays on its host");
}

// --- statistics: the file of what waits, then that of a block ---

std::string InWork(int id) { return "in_work_" + DecimalText(id) + ".xml"; }

// What a file with the holder's content holds when it is read again.
std::string Stored(const TStatHolder& holder) {
  TStatHolder stored;
  Check(stored.ParseXML(holder.MakeXML()), "a written file is whole");
  return stored.MakeXML();
}

std::string StoredIn(const std::string& file) {
  TStatHolder stored;
  Check(stored.Load(AppFile(file).string()), "a stored file is whole");
  return stored.MakeXML();
}

// Cuts blocks, then takes them back.
void CheckNothingIsLost(TStatHolder holder, std::size_t seed) {
  // Each block takes the time of all that waits; no kind of damage needs more of them.
  constexpr int kBlocks = 2;
  if (!holder.Confirmed()) holder.SetFirstDate({});  // alone it is nothing
  const std::string before = Stored(holder);
  Check(holder.Save(AppFile("statistics.xml").string()), "statistics are saved");
  const std::string baseUrl = "http://example.com/?krsoft=app&x=" + std::string(seed % 950, 'x');
  TStatCtrl statistics(kApp, nullptr);
  int blocks = 0;
  for (; blocks < kBlocks; ++blocks) {
    const std::optional<PingBlock> block = statistics.GetPingUrl(baseUrl);
    if (!block) break;
    Check(block->id == blocks, "each block has its own file");
    TStatHolder inWork;
    Check(inWork.Load(AppFile(InWork(blocks)).string()), "a block's file is whole");
    Check(block->url.starts_with(baseUrl + "&" + inWork.MakeQuery()),
          "an address carries what its file holds");
  }
  while (blocks > 0) statistics.Rollback(--blocks);
  Check(StoredIn("statistics.xml") == before, "nothing is lost");
}

void FuzzStat(std::string_view input) {
  TStatHolder holder;
  if (!IsTaken("Unknown state.", [&] { holder.ParseXML(std::string(input)); })) return;
  TStatHolder merged;
  merged.Merge(TStatHolder(holder));
  holder.Merge(TStatHolder());  // leaves one dayuse
  CheckNothingIsLost(std::move(holder), input.size() * 37);
  RemoveAppFiles();
  WriteBytes(AppFile(InWork(0)), WithCrLf(input));
  TStatCtrl(kApp, nullptr).Rollback(0);
  Check(!fs::exists(AppFile(InWork(0))), "a block that was taken back is gone");
  Check(StoredIn("statistics.xml") == Stored(merged), "and waits again");
}

// --- versions: the first line is a mask ---

void FuzzVersion(std::string_view input) {
  std::vector<std::string> parts;
  const std::string mask(TakeLine(&input));
  if (IsTaken("Bad version mask.", [&] { ParseVersionMask(mask, &parts); })) {
    Check(MaskToVersion(parts, 0) <= MaskToVersion(parts, 0xFFFF), "a range does not end below");
  }
  VersionNumber version = 0;
  if (!IsTaken("sscanf failed", [&] { version = ParseVersion(input); })) return;
  const std::string written = FormatVersion(version);
  Check(ParseVersion(written) == version, "a version is written as it was read");
  ParseVersionMask(written, &parts);
  Check(parts.size() == 4 && MaskToVersion(parts, 7) == version, "a version is its own mask");
}

// --- XML ---

// A text without the blanks beside tags, some of which are not kept, while others indent. A run of
// blanks is one.
std::string WithoutOuterBlanks(std::string_view text) {
  const auto isBlank = [](char c) {
    return std::string_view(" \t\r\n\0", 5).find(c) != std::string::npos;
  };
  std::string kept;
  for (const char c : text) {
    while (c == '<' && !kept.empty() && isBlank(kept.back())) kept.pop_back();
    const bool isFirst = kept.ends_with('>') || kept.ends_with("<!") || kept.ends_with(' ');
    if (!isBlank(c)) kept += c;
    if (isBlank(c) && !isFirst) kept += ' ';
  }
  return kept;
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
  Check(XmlNode(tree).Serialise() == text, "a copy is the same");
  XmlNode again;
  again.Parse(text);
  Check(again.CodePage() == tree.CodePage(), "the code page stays");
  Check(WithoutOuterBlanks(again.Serialise()) == WithoutOuterBlanks(text),
        "what is parsed is written");
}

}  // namespace

const std::map<std::string, FuzzTarget> kFuzzTargets = {
    {"clids", FuzzClids},       {"command", FuzzCommand}, {"feed", FuzzFeed},
    {"manifest", FuzzManifest}, {"offer", FuzzOffer},     {"stat", FuzzStat},
    {"version", FuzzVersion},   {"xml", FuzzXml}};
