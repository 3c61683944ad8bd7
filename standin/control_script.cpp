#include "standin/control_script.h"

#include <charconv>
#include <optional>

#include "util/text.h"

namespace standin {
namespace {

using Words = std::vector<std::string_view>;

Words SplitWords(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r";
  Words words;
  for (std::size_t at = line.find_first_not_of(kBlanks); at != std::string_view::npos;
       at = line.find_first_not_of(kBlanks, at)) {
    const std::size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

template <class Number, class... Base>
std::optional<Number> ParseNumber(std::string_view text, Base... base) {
  Number number{};
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, base...);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<HResult> ParseCode(std::string_view text) {
  if (!text.starts_with("0x")) return std::nullopt;
  const auto code = ParseNumber<std::uint32_t>(text.substr(2), 16);
  if (!code) return std::nullopt;
  return static_cast<HResult>(static_cast<std::int32_t>(*code));
}

// fail CALL CODE [call N] [times M]
bool ParseFail(const Words& words, ControlScript& script) {
  if (words.size() < 3 || words.size() % 2 == 0) return false;
  const std::optional<HResult> code = ParseCode(words[2]);
  if (!code) return false;
  // "call N" alone means that one call. "times" sets the number of calls, before or behind "call".
  FailRule rule{.call = std::string(words[1]), .code = *code};
  bool counted = false;
  for (std::size_t i = 3; i < words.size(); i += 2) {
    const auto number = ParseNumber<std::uint64_t>(words[i + 1]);
    if (!number || *number == 0) return false;
    if (words[i] == "call") {
      rule.first = *number;
      if (!counted) rule.count = 1;
    } else if (words[i] == "times") {
      rule.count = *number;
      counted = true;
    } else {
      return false;
    }
  }
  script.failures.push_back(rule);
  return true;
}

bool ParseStates(const Words& words, ControlScript& script) {
  std::vector<int> states;
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::optional<int> state = ParseState(words[i]);
    if (!state) return false;
    states.push_back(*state);
  }
  if (states.empty()) return false;
  script.states = states;
  return true;
}

bool ParseClock(const Words& words, ControlScript& script) {
  const auto factor = words.size() == 2 ? ParseNumber<double>(words[1]) : std::nullopt;
  // Not "*factor <= 0": "nan" is a number for the parser, and must not pass.
  if (!factor || !(*factor > 0)) return false;
  script.clockFactor = *factor;
  return true;
}

bool ParseLater(const Words& words, ControlScript& script) {
  const auto seconds = words.size() == 2 ? ParseNumber<double>(words[1]) : std::nullopt;
  // As above for "nan".
  if (!seconds || !(*seconds >= 0)) return false;
  script.laterSeconds = *seconds;
  return true;
}

bool ParseLinger(const Words& words, ControlScript& script) {
  const auto seconds = words.size() == 2 ? ParseNumber<std::uint32_t>(words[1]) : std::nullopt;
  if (!seconds) return false;
  script.lingerSeconds = *seconds;
  return true;
}

bool ParseLine(const Words& words, ControlScript& script) {
  if (words[0] == "fail") return ParseFail(words, script);
  if (words[0] == "states") return ParseStates(words, script);
  if (words[0] == "clock") return ParseClock(words, script);
  if (words[0] == "later") return ParseLater(words, script);
  if (words[0] == "linger") return ParseLinger(words, script);
  if (words[0] == "vanish" && words.size() == 2) {
    script.vanished.emplace_back(words[1]);
    return true;
  }
  if (words[0] == "user" && words.size() == 2) {
    script.user = words[1];
    return true;
  }
  if (words[0] == "owner" && words.size() == 3) {
    script.owners[std::string(words[2])] = words[1];
    return true;
  }
  if (words[0] == "no-job2" && words.size() == 1) return script.withholdJob2 = true;
  if (words[0] == "job5" && words.size() == 1) return script.offerJob5 = true;
  if (words[0] == "any-server" && words.size() == 1) return script.anyServer = true;
  return false;
}

}  // namespace

ControlScript ParseControlScript(std::string_view text) {
  ControlScript script;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const Words words = SplitWords(line);
    if (words.empty() || words[0].front() == '#' || ParseLine(words, script)) continue;
    script.problems.push_back("control.txt, line " + std::to_string(number) +
                              " is not understood: " + std::string(line));
  }
  return script;
}

}  // namespace standin
