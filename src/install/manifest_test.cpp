#include "install/manifest.h"

#include <gtest/gtest.h>

#include "install/base64.h"
#include "testing/table.h"

namespace {

using namespace std::string_view_literals;

constexpr std::uint64_t kLastSecond = 1'801'439'999;  // of 2027-01-31
const std::string kBody =
    "kupdate-manifest 1\napp: my app\nversion: 2.0.0.1\nsize: 1048576\nsha256: " +
    std::string(64, 'a') + "\nexpires: 2027-01-31\n";

// A whole manifest with one text in the place of another. Both numbers of its signature are 1.
std::string With(std::string_view from, std::string_view to) {
  std::string text = kBody + "signature: MAYCAQECAQE=\n";
  return text.replace(text.find(from), from.size(), to);
}

std::string Integer(std::string_view bytes) {
  return std::string{2, static_cast<char>(bytes.size())} + std::string(bytes);
}
std::string Sequence(std::string_view content) {
  return std::string{0x30, static_cast<char>(content.size())} + std::string(content);
}

}  // namespace

TEST(Manifest, WhatIsNotStrictIsRefused) {
  const Table<std::string, std::string_view> table = {
      {"", "it is no manifest"},
      {With("manifest 1", "manifest 2"), "it is no manifest"},
      {"too long", With("my app", std::string(kMaxManifestBytes, 'x')), "it is too long"},
      {With("my app", "\xFF"), "it is not UTF-8"},
      {With("my app\n", "my app\r\n"), "a line holds control characters"},
      {With("my app", "my\0app"sv), "a line holds control characters"},
      {With("app:", "\napp:"), "a line is no field"},
      {With("app:", "url: x\napp:"), "a field is unknown"},
      {With("app:", "app: x\napp:"), "a field stands twice"},
      {With("app: my app\n", ""), "a field is missing"},
      {With("my app", ""), "a field is empty"},
      {With("2.0.0.1", "2.0.1"), "the version is no version"},
      {With("2.0.0.1", "2.0.0.65536"), "the version is no version"},
      {With("1048576", "0"), "the size is no size"},
      {With("1048576", "01"), "the size is no size"},
      {With("1048576", "4294967297"), "the size is no size"},
      {With("aaaa", "AAAA"), "the digest is no SHA-256"},
      {With("01-31", "02-29"), "the expiry is no date"},
      {With("2027-01-31", "31.01.2027"), "the expiry is no date"},
      {With("size", "starter: bat\nsize"), "the starter is unknown"},
      {With("size", "elevate: yes\nsize"), "elevate is neither 0 nor 1"},
      {With("size", "channel: x\nsize"), "the channel is neither release nor beta"},
      {kBody, "its end is missing"},
      {With("E=\n", "E="), "its end is missing"},
      {With("E=\n", "E=\napp: x\n"), "something follows the signature"},
      {With("MAYC", "MAYD"), "the signature has no valid form"},
      {With("signature", "elevate: 0\nchannel: release\nsignature"), ""},
  };
  Manifest manifest;
  table.Expect([&](const std::string& text) { return ParseManifest(text, &manifest); });
  EXPECT_FALSE(manifest.mayElevate || manifest.isBeta);
}

TEST(Manifest, VouchesForOneOfferOnly) {
  struct Case {
    Manifest manifest;
    UpdateOffer offer{"my app",      MakeVersion(2, 0, 0, 1), {},  {}, 1048576,
                      Starter::kMsi, "/qn  A=\"Ж\"",          true};
    LocalRecord record{0, "win", ""};
    std::uint64_t now = kLastSecond;
  };
  const std::string text =
      With("signature",
           "starter: msi\nargs: /qn  A=\"Ж\"\nelevate: 1\nplatform: win\nchannel: beta\nsignature");
  const Table<void (*)(Case&), std::string_view> table = {
      {"the offer", [](Case&) {}, ""},
      {"size not declared", [](Case& c) { c.offer.size = 0; }, ""},
      {"day after", [](Case& c) { ++c.now; }, "it has expired"},
      {"app", [](Case& c) { c.offer.appId = "My app"; }, "it is for another application"},
      {"newer", [](Case& c) { ++c.offer.version; }, "it is for another version"},
      {"platform", [](Case& c) { c.record.platform = "Win"; }, "it is for another platform"},
      {"any platform", [](Case& c) { c.manifest.platform = ""; }, ""},
      {"beta", [](Case& c) { c.record.release = true; }, "it is for the beta channel"},
      {"release", [](Case& c) { c.manifest.isBeta = false; }, ""},
      {"size", [](Case& c) { ++c.offer.size; }, "it declares another size"},
      {"starter", [](Case& c) { c.manifest.starter = {}; }, "it declares another starter"},
      {"arguments", [](Case& c) { c.offer.args += ' '; }, "it declares other arguments"},
      {"elevation", [](Case& c) { c.manifest.mayElevate = false; }, "it does not allow elevation"},
  };
  table.Expect([&](void (*change)(Case&)) {
    Case c;
    EXPECT_EQ(ParseManifest(text, &c.manifest), "");
    change(c);
    return FaultOf(c.manifest, c.offer, c.record, c.now);
  });
}

TEST(Base64, OnlyTheOneFormIsDecoded) {
  const Table<std::string_view, std::optional<std::string>> table = {
      {"", ""},     {"TQ==", "M"},    {"TWE=", "Ma"}, {"TWFu", "Man"}, {"+/+/", "\xFB\xFF\xBF"},
      {"TQ=", {}},  {"TQ", {}},       {"TR==", {}},   {"TWF=", {}},    {"T===", {}},
      {"====", {}}, {"TQ==TQ==", {}}, {"TW\nu", {}},  {"TW-u", {}},    {"TWF\xC3", {}},
  };
  table.Expect(DecodeBase64);
}

TEST(P256, SignatureHasOneForm) {
  const std::string one = Integer("\x01"), full(32, '\x7F');
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
  const std::string high = std::string(1, '\0') + std::string(32, '\xFF');
  const std::string whole = Sequence(Integer(full) + Integer(high));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(SignatureFromDer(std::string_view(whole).substr(0, size))) << size;
  }
  EXPECT_EQ((*SignatureFromDer(whole))[32], 0xFF);
}
