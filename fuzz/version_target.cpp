#include <stdexcept>

#include "appinfo/version_number.h"
#include "fuzz/fuzz.h"

namespace {

void CheckVersion(std::string_view text) {
  try {
    const VersionNumber version = ParseVersion(text);
    const std::string written = FormatVersion(version);
    Check(ParseVersion(written) == version, "a version is written as it was read");
    std::vector<std::string> parts;
    ParseVersionMask(written, &parts);
    Check(parts.size() == 4 && MaskToVersion(parts, 7) == version, "a version is its own mask");
  } catch (const std::invalid_argument& error) {
    Check(std::string(error.what()).starts_with("sscanf failed"), "the message is the known one");
  }
}

void CheckMask(std::string_view mask) {
  std::vector<std::string> parts;
  try {
    ParseVersionMask(mask, &parts);
  } catch (const char* message) {
    Check(std::string_view(message) == "Bad version mask.", "the message is the known one");
    return;
  }
  Check(MaskToVersion(parts, 0) <= MaskToVersion(parts, 0xFFFF), "a range does not end below");
}

}  // namespace

void FuzzVersion(std::string_view input) {
  CheckMask(TakeLine(&input));
  CheckVersion(input);
}
