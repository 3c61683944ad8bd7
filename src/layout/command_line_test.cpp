// The command lines of the executor, as they are written and as they are read.
#include "layout/command_line.h"

#include <stdexcept>

#include "testing/unit_test.h"

namespace {

// The result of a parse as one text.
std::string Read(const std::wstring& line, const wchar_t* program) {
  const ExecutorCommand c = ParseExecutorCommand(line, program);
  static constexpr const char* kKinds[] = {"none",  "help", "version", "status", "job",
                                           "check", "ping", "install", "channel"};
  std::string text = kKinds[static_cast<int>(c.kind)];
  if (c.hasAppId) text += " id=[" + c.appId + "]";
  if (!c.file.empty()) text += " file=[" + std::string(c.file.begin(), c.file.end()) + "]";
  if (!c.jobId.empty()) text += " job=[" + c.jobId + "]";
  if (c.kind == CommandKind::kStatCallback) text += " block=" + std::to_string(c.blockId);
  return text + (c.suicide ? " suicide" : "") + (c.json ? " json" : "") + (c.beta ? " beta" : "");
}

}  // namespace

TEST(CommandLine, RefusesIdsThatWouldAddAnArgument) {
  for (const wchar_t* id : {L"a\" --suicide", L"a --suicide", L"--suicide"}) {
    EXPECT_THROW(UpdateCheckArguments(id, L"f"), std::invalid_argument);
    EXPECT_THROW(PingArguments(id, 1, false), std::invalid_argument);
    EXPECT_THROW(SilentUpdateCommandLine(L"e", id), std::invalid_argument);
  }
  EXPECT_EQ(QuotedPath(L"\"quoted\"") + QuotedPath(L""), L"\"quoted\"\"\"");
  EXPECT_EQ(PingArguments(L"a--b -x", 7, true), L" --suicide --stat-callback 7 --appid a--b -x");
}

TEST(ExecutorCommand, ReadsWhatPeopleAndStrangersWrite) {
  // The program's path may not be known.
  for (const wchar_t* const program : {L"exe", L""}) {
    const auto expect = [&](const char* want, std::initializer_list<const wchar_t*> lines) {
      ExpectAll(std::string(want), lines, [&](const wchar_t* line) { return Read(line, program); });
    };
    expect("none", {L"", L"\"C:\\unclosed --help", L"exe x--help --helpx", L"exe \"--help\"",
                    L"exe --silent-update-check"});
    expect("help", {L"exe --help"});
    expect("version", {L"\"C:\\a --help\\exe\" --version"});
    expect("status id=[my app] json", {L"exe --status --appid my app --json"});
    expect("status id=[my app]", {L"exe --status --appid \"my app\""});
    expect("status json", {L"exe\t--status\t--json"});
    expect("channel id=[a b] beta", {L"exe --set-channel beta --appid a b"});
    expect("channel id=[a]", {L"exe --appid a --set-channel release"});
    expect("none id=[a]", {L"exe --appid a --set-channel", L"exe --appid a --set-channel Beta"});
    expect("check id=[a] file=[f g] job=[{1}]",
           {L"exe --appid a --update-check --file f g --job {1}"});
    expect("none id=[a] file=[f --job {1}]",
           {L"exe --appid a --update-check --file \"f --job {1}"});
    expect("job file=[f] job=[{1}]", {L"exe --update-check --file f --job {1}"});
    expect(
        "job id=[a] job=[{1}]",
        {L"exe --appid a --update-check --job {1}", L"exe --appid a --stat-callback 101 --job {1}",
         L"exe --appid a --stat-callback 99999999999999999999 --job {1}",
         L"exe --appid a --update-check --silent-update-check --job {1}"});
    expect("ping id=[x] job=[{1}] block=100 suicide",
           {L"exe --suicide --stat-callback 100 --appid x --job {0} --job {1}"});
    expect("job job=[{1}]", {L"exe --job {1}"});
  }
}
