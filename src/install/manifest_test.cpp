#include "install/manifest.h"

#include <gtest/gtest.h>

#include "install/base64.h"
#include "testing/table.h"

namespace {

using namespace std::string_view_literals;

constexpr std::uint64_t kLastSecond = 1'801'439'999;  // of 2027-01-31
// r and s are 1.
constexpr std::string_view kSignatureLine = "signature: MAYCAQECAQE=\n";

std::string Body() {
  return "kupdate-manifest 1\napp: my app\nversion: 2.0.0.1\nsize: 1048576\nsha256: " +
         std::string(64, 'a') + "\nexpires: 2027-01-31\n";
}

// The body with one text in the place of another.
std::string With(std::string_view from, std::string_view to) {
  std::string text = Body() + std::string(kSignatureLine);
  return text.replace(text.find(from), from.size(), to);
}

TEST(Manifest, WhatIsNotStrictIsRefused) {
  const Table<std::string, std::string_view> table = {
      {"empty", "", "it is no manifest"},
      {"another kind", With("manifest 1", "manifest 2"), "it is no manifest"},
      {"too long", With("my app", std::string(kMaxManifestBytes, 'x')), "it is too long"},
      {"not UTF-8", With("my app", "\xFF"), "it is not UTF-8"},
      {"CR LF", With("my app\n", "my app\r\n"), "a line holds control characters"},
      {"zero", With("my app", "my\0app"sv), "a line holds control characters"},
      {"blank line", With("app:", "\napp:"), "a line is no field"},
      {"unknown", With("app:", "url: x\napp:"), "a field is unknown"},
      {"twice", With("app:", "app: x\napp:"), "a field stands twice"},
      {"missing", With("app: my app\n", ""), "a field is missing"},
      {"empty value", With("my app", ""), "a field is empty"},
      {"version of three", With("2.0.0.1", "2.0.1"), "the version is no version"},
      {"part too large", With("2.0.0.1", "2.0.0.65536"), "the version is no version"},
      {"no size", With("1048576", "0"), "the size is no size"},
      {"size with zero", With("1048576", "01"), "the size is no size"},
      {"size over the limit", With("1048576", "4294967297"), "the size is no size"},
      {"digest in capitals", With("aaaa", "AAAA"), "the digest is no SHA-256"},
      {"no such day", With("01-31", "02-29"), "the expiry is no date"},
      {"other date form", With("2027-01-31", "31.01.2027"), "the expiry is no date"},
      {"starter", With("size", "starter: bat\nsize"), "the starter is unknown"},
      {"elevate", With("size", "elevate: yes\nsize"), "elevate is neither 0 nor 1"},
      {"channel", With("size", "channel: x\nsize"), "the channel is neither release nor beta"},
      {"no signature", Body(), "its end is missing"},
      {"last line open", With("E=\n", "E="), "its end is missing"},
      {"more behind", With("E=\n", "E=\napp: x\n"), "something follows the signature"},
      {"no DER", With("MAYC", "MAYD"), "the signature has no valid form"},
  };
  Manifest manifest;
  table.Expect([&](const std::string& text) { return ParseManifest(text, &manifest); });
  const std::string defaults = With("signature", "elevate: 0\nchannel: release\nsignature");
  EXPECT_EQ(ParseManifest(defaults, &manifest), "");
  EXPECT_FALSE(manifest.mayElevate || manifest.isBeta);
}

TEST(Manifest, VouchesForOneOfferOnly) {
  const struct {
    const char* label;
    void (*change)(Manifest&, UpdateOffer&, LocalRecord&);
    std::uint64_t now;
    std::string_view want;
  } rows[] = {
      {"the offer", [](auto&, auto&, auto&) {}, kLastSecond, ""},
      {"size not declared", [](auto&, auto& o, auto&) { o.size = 0; }, 0, ""},
      {"day after", [](auto&, auto&, auto&) {}, kLastSecond + 1, "it has expired"},
      {"app", [](auto&, auto& o, auto&) { o.appId = "My app"; }, 0,
       "it is for another application"},
      {"newer", [](auto&, auto& o, auto&) { ++o.version; }, 0, "it is for another version"},
      {"platform", [](auto&, auto&, auto& r) { r.platform = "Win"; }, 0,
       "it is for another platform"},
      {"any platform", [](auto& m, auto&, auto&) { m.platform = ""; }, 0, ""},
      {"beta", [](auto&, auto&, auto& r) { r.release = true; }, 0, "it is for the beta channel"},
      {"release", [](auto& m, auto&, auto&) { m.isBeta = false; }, 0, ""},
      {"size", [](auto&, auto& o, auto&) { ++o.size; }, 0, "it declares another size"},
      {"starter", [](auto& m, auto&, auto&) { m.starter = {}; }, 0, "it declares another starter"},
      {"arguments", [](auto&, auto& o, auto&) { o.args += ' '; }, 0, "it declares other arguments"},
      {"elevation", [](auto& m, auto&, auto&) { m.mayElevate = false; }, 0,
       "it does not allow elevation"},
  };
  const std::string text =
      With("signature",
           "starter: msi\nargs: /qn  A=\"Ж\"\nelevate: 1\nplatform: win\nchannel: beta\nsignature");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    Manifest manifest;
    ASSERT_EQ(ParseManifest(text, &manifest), "");
    UpdateOffer offer{"my app",      MakeVersion(2, 0, 0, 1), {},  {}, 1048576,
                      Starter::kMsi, "/qn  A=\"Ж\"",          true};
    LocalRecord record;
    record.platform = "win";
    row.change(manifest, offer, record);
    EXPECT_EQ(FaultOf(manifest, offer, record, row.now), row.want);
  }
}

TEST(Base64, OnlyTheOneFormIsDecoded) {
  const Table<std::string_view, std::optional<std::string>> table = {
      {"", ""},     {"TQ==", "M"},    {"TWE=", "Ma"}, {"TWFu", "Man"}, {"+/+/", "\xFB\xFF\xBF"},
      {"TQ=", {}},  {"TQ", {}},       {"TR==", {}},   {"TWF=", {}},    {"T===", {}},
      {"====", {}}, {"TQ==TQ==", {}}, {"TW\nu", {}},  {"TW-u", {}},    {"TWF\xC3", {}},
  };
  table.Expect(DecodeBase64);
}

std::string Integer(std::string_view bytes) {
  return std::string{2, static_cast<char>(bytes.size())} + std::string(bytes);
}
std::string Sequence(std::string_view content) {
  return std::string{0x30, static_cast<char>(content.size())} + std::string(content);
}

TEST(P256, SignatureHasOneForm) {
  const std::string one = Integer("\x01");
  const std::string full(32, '\x7F');
  const std::string high = std::string(1, '\0') + std::string(32, '\xFF');
  const Table<std::string, bool> table = {
      {"small", Sequence(one + one), true},
      {"33 bytes", Sequence(Integer("\x01" + full) + one), false},
      {"zero", Sequence(one + Integer("\0"sv)), false},
      {"negative", Sequence(one + Integer("\x80")), false},
      {"needless zero", Sequence(one + Integer("\0\x01"sv)), false},
      {"three numbers", Sequence(one + one + one), false},
      {"more behind", Sequence(one + one) + "x", false},
      {"long length", "\x30\x81\x06" + one + one, false},
      {"other tag", "\x31\x06" + one + one, false},
  };
  table.Expect([](const std::string& der) { return SignatureFromDer(der).has_value(); });
  const std::string whole = Sequence(Integer(full) + Integer(high));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(SignatureFromDer(std::string_view(whole).substr(0, size))) << size;
  }
  EXPECT_EQ((*SignatureFromDer(whole))[32], 0xFF);
}

}  // namespace
