#include "install/trust_text.h"

#include <gtest/gtest.h>

#include "testing/table.h"

namespace {

const std::string kKey = "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAE" + std::string(85, 'A') + "A==";
const std::string kText =
    "kupdate-trust 1\npublisher: Ж Ltd\nkey: " + kKey + "\nfor: my app\nfor: b\n";

std::string With(std::string_view from, std::string_view to) {
  std::string text = kText;
  return text.replace(text.find(from), from.size(), to);
}

std::string Printed(const std::optional<TrustAnchors>& trust) {
  if (!trust) return "damaged";
  std::string text = trust->publisher;
  for (const PublisherKey& key : trust->publicKeys) {
    text += key.key == kKey ? "; key" : "; other";
    for (const std::string& app : key.apps) text += " " + app;
  }
  return text;
}

}  // namespace

TEST(TrustText, KeepsPublisherKeysAndTheirApplications) {
  const Table<std::string, std::string> table = {
      {kText, "Ж Ltd; key my app b"},
      {kText + "\n\n", "Ж Ltd; key my app b"},
      {With("for: my app\nfor: b\n", "key: " + kKey + "\n"), "Ж Ltd; key; key"},
      {"kupdate-trust 1\n", ""},
      {"", "damaged"},
      {With("trust 1", "trust 2"), "damaged"},
      {With("for: b\n", "for: b"), "damaged"},
      {With("for: b", "for: "), "damaged"},
      {With("for: b", "fur: b"), "damaged"},
      {With("key: ", "key: A"), "damaged"},
      {With("publisher: Ж Ltd", "for: app"), "damaged"},
      {With("for: b", "publisher: c"), "damaged"},
      {With("for: b", "for: \x01"), "damaged"},
  };
  table.Expect([](const std::string& text) { return Printed(ParseTrust(text)); });
}

TEST(TrustText, IsWrittenOnlyWhenItCanBeRead) {
  TrustAnchors trust{"Ж Ltd", {{kKey, {"my app", "b"}}}};
  const std::optional<std::string> text = FormatTrust(trust);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), kTrustBytes);
  EXPECT_EQ(Printed(ParseTrust(*text)), "Ж Ltd; key my app b");
  const Table<void (*)(TrustAnchors&), bool> table = {
      {"nothing", [](TrustAnchors& t) { t = {}; }, true},
      {"empty id", [](TrustAnchors& t) { t.publicKeys[0].apps[1] = ""; }, false},
      {"line feed", [](TrustAnchors& t) { t.publisher = "a\nkey: b"; }, false},
      {"too many", [](TrustAnchors& t) { t.publicKeys.resize(31, t.publicKeys[0]); }, false},
  };
  table.Expect([&](void (*change)(TrustAnchors&)) {
    TrustAnchors changed = trust;
    change(changed);
    return FormatTrust(changed).has_value();
  });
}
