// What decides about an update without Windows: the manifest, what it vouches for, and addresses.
#include "install/base64.h"
#include "install/manifest.h"
#include "install/trust_text.h"
#include "testing/unit_test.h"

namespace {

using namespace std::string_view_literals;

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

std::string Printed(const std::optional<TrustAnchors>& trust) {
  if (!trust) return "damaged";
  std::string text = trust->publisher;
  for (const PublisherKey& key : trust->publicKeys) {
    text += "; " + key.key.substr(0, 4);
    for (const std::string& app : key.apps) text += " " + app;
  }
  return text;
}

}  // namespace

TEST(Manifest, OnlyTheStrictFormIsAccepted) {
  Manifest manifest;
  const auto expect = [&](std::string_view fault, std::initializer_list<std::string> texts) {
    ExpectAll(fault, texts, [&](const auto& text) { return ParseManifest(text, &manifest); });
  };
  expect("it is no manifest", {"", With("manifest 1", "manifest 2")});
  expect("it is too long", {With("my app", std::string(kMaxManifestBytes, 'x'))});
  expect("it is not UTF-8", {With("my app", "\xFF")});
  expect("a line holds control characters",
         {With("my app\n", "my app\r\n"), With("my app", "my\0app"sv)});
  expect("a line is no field", {With("app:", "\napp:")});
  expect("a field is unknown", {With("app:", "url: x\napp:")});
  expect("a field stands twice", {With("app:", "app: x\napp:")});
  expect("a field is missing", {With("app: my app\n", "")});
  expect("a field is empty", {With("my app", "")});
  expect("the version is no version", {With("2.0.0.1", "2.0.1"), With("2.0.0.1", "2.0.0.65536")});
  const std::string size = "1048576";
  expect("the size is no size", {With(size, "0"), With(size, "01"), With(size, "4294967297")});
  expect("the digest is no SHA-256", {With("aaaa", "AAAA")});
  expect("the expiry is no date", {With("01-31", "02-29"), With("2027-01-31", "31.01.2027")});
  expect("the starter is unknown", {With("size", "starter: bat\nsize")});
  expect("elevate is neither 0 nor 1", {With("size", "elevate: yes\nsize")});
  expect("the channel is neither release nor beta", {With("size", "channel: x\nsize")});
  expect("its end is missing", {kBody, With("E=\n", "E=")});
  expect("something follows the signature", {With("E=\n", "E=\napp: x\n")});
  expect("the signature has no valid form", {With("MAYC", "MAYD")});
  expect("", {With("signature", "elevate: 0\nchannel: release\nsignature")});
  EXPECT_FALSE(manifest.mayElevate || manifest.isBeta);
}

TEST(Manifest, VouchesForOneOfferOnly) {
  struct Case {
    Manifest manifest;
    UpdateOffer offer{"my app",      MakeVersion(2, 0, 0, 1), {},  {}, 1048576,
                      Starter::kMsi, "/qn  A=\"Ж\"",          true};
    LocalRecord record{0, "win", ""};
    std::uint64_t now = 1'801'439'999;  // the last second of 2027-01-31
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
      {"elevation", [](Case& c) { c.manifest.mayElevate = false; }, "it does not allow elevation"}};
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
      {"====", {}}, {"TQ==TQ==", {}}, {"TW\nu", {}},  {"TW-u", {}},    {"TWF\xC3", {}}};
  table.Expect(DecodeBase64);
}

TEST(P256, SignatureHasOneForm) {
  const std::string one = Integer("\x01"), full(32, '\x7F');
  const auto isValid = [](std::string_view der) { return SignatureFromDer(der).has_value(); };
  EXPECT_TRUE(isValid(Sequence(one + one)));
  // 33 bytes, zero, negative, a needless zero, three numbers, more behind, a long length, another tag.
  ExpectAll(false,
            {Sequence(Integer("\x01" + full) + one), Sequence(one + Integer("\0"sv)),
             Sequence(one + Integer("\x80")), Sequence(one + Integer("\0\x01"sv)),
             Sequence(one + one + one), Sequence(one + one) + "x", "\x30\x81\x06" + one + one,
             "\x31\x06" + one + one},
            isValid);
  const std::string high = std::string(1, '\0') + std::string(32, '\xFF');
  const std::string whole = Sequence(Integer(full) + Integer(high));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(isValid(std::string_view(whole).substr(0, size))) << size;
  }
  EXPECT_EQ((*SignatureFromDer(whole))[32], 0xFF);
}

TEST(UpdateOffer, AddressesThatAreFetched) {
  ExpectAll(true,
            {"https://example.com/a.exe", "http://[::1]/a.exe",
             "HTTPS://example.com:8443/a%20b.exe?x=1&y"},
            IsFetched);
  const std::string tooLong = "https://e/" + std::string(kMaxAddressBytes, 'x');
  ExpectAll(
      false,
      {"https://", "https://\\\\server\\a.exe", "file:///C:/a.exe", "https://example.com/a b.exe",
       "https://example.com/\r\nX: y", "https://e.com@evil.org/a.exe",
       "https://example.com/a.exe#b", "https://ex\xC3\xA4mple.com/a", tooLong.c_str()},
      IsFetched);
}

TEST(UpdateOffer, Redirections) {
  using Step = std::pair<const char*, const char*>;  // the address and where it redirects to
  const Table<Step, std::string> table = {
      {{"https://a.com/x/y", "https://b.com/z"}, "https://b.com/z"},
      {{"https://a.com:1/x?y", "/z?q"}, "https://a.com:1/z?q"},
      {{"https://a.com", "/z"}, "https://a.com/z"},
      {{"https://a.com?q", "/z"}, "https://a.com/z"},
      {{"https://a.com/x", "//b.com/z"}, "https://b.com/z"},
      {{"https://a.com/x", "z"}, ""},
      {{"https://a.com/x", "/a b"}, ""}};
  table.Expect([](const Step& step) { return RedirectedAddress(step.first, step.second); });
}

TEST(UpdateOffer, OnlyAHigherVersionOfARegisteredApplication) {
  const VersionNumber offered = MakeVersion(2, 0, 0, 1);
  EXPECT_TRUE(MayUpdate(LocalRecord{offered - 1, "", ""}, offered));
  const LogCapture log;
  for (const std::optional<LocalRecord>& refused : {std::optional<LocalRecord>(),
                                                    {LocalRecord{0, "", "", true, true}},
                                                    {LocalRecord{offered, "", ""}}}) {
    EXPECT_FALSE(MayUpdate(refused, offered));
  }
  for (const char* line : {"The application is not registered.", "The application is removed.",
                           "version 2.0.0.1 is not above the application's, 2.0.0.1"}) {
    EXPECT_TRUE(log.Has(line));
  }
}

TEST(UpdateOffer, ArgumentsAreThoseOfTheStarter) {
  const DataHome home;
  const auto record = home.AppFolder("app") / "updinfo.xml";
  WriteBytes(record, "<appinfo><VerMajor>2</VerMajor><DistroUrl>https");
  EXPECT_FALSE(ReadOffer("app"));
  WriteBytes(record,
             "<appinfo><VerMajor>2</VerMajor><DistroUrl>https://e/a</DistroUrl>"
             "<DistroArgs>/S</DistroArgs><MSIArgs>/qn</MSIArgs><DistroStarter>MSI</DistroStarter>"
             "<DistroSize>-5</DistroSize><UACDlg>1</UACDlg></appinfo>");
  const auto offer = ReadOffer("app");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->args, "/qn");
  EXPECT_EQ(offer->size, 0u);
  EXPECT_TRUE(offer->mayElevate);
}

TEST(TrustText, KeepsPublisherKeysAndTheirApplications) {
  const std::string key = "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAE" + std::string(85, 'A') + "A==";
  TrustAnchors trust{"Ж Ltd", {{key, {"my app", "b"}}, {key, {}}}};
  const std::string text = FormatTrust(trust).value();
  EXPECT_EQ(text.size(), kTrustBytes);
  EXPECT_EQ(Printed(ParseTrust(text)), "Ж Ltd; MFkw my app b; MFkw");
  EXPECT_EQ(Printed(ParseTrust("kupdate-trust 1\n\n")), "");
  const auto with = [&](std::string_view from, std::string_view to) {
    return std::string(text).replace(text.find(from), from.size(), to);
  };
  ExpectAll("damaged",
            {std::string(), with("trust 1", "trust 2"), text + "x", with("for: b", "for: "),
             with("for: b", "fur: b"), with("for: b", "for: \x01"), with("key: ", "key: A"),
             with("publisher: Ж Ltd", "for: app"), with("for: b", "publisher: c")},
            [](const std::string& damaged) { return Printed(ParseTrust(damaged)); });
  trust.publisher = "a\nkey: b";
  EXPECT_FALSE(FormatTrust(trust));
  EXPECT_FALSE(FormatTrust({"", {{key, {""}}}}));
  EXPECT_FALSE(FormatTrust({"", std::vector<PublisherKey>(32, PublisherKey{key, {}})}));
}
