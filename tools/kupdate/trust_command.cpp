#include "kupdate/trust_command.h"

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "install/trust_text.h"
#include "kupdate/files.h"
#include "kupdate/key_file.h"
#include "kupdate/pe_file.h"

namespace {

constexpr char16_t kResource[] = u"KUPDATE_TRUST";

struct Arguments {
  std::string file;
  TrustAnchors trust;
};

// Runs `body` and puts the file's name in front of what is wrong with it.
template <class Body>
auto About(const std::string& file, Body body) {
  try {
    return body();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(file + ": " + error.what());
  }
}

void Print(const TrustAnchors& trust) {
  if (!trust.publisher.empty()) std::cout << "publisher: " << trust.publisher << "\n";
  for (const PublisherKey& publisher : trust.publicKeys) {
    std::cout << "key: " << Fingerprint(publisher.key);
    for (const std::string& app : publisher.apps) {
      std::cout << (&app == publisher.apps.data() ? ", only for " : ", ") << app;
    }
    std::cout << (publisher.apps.empty() ? ", for all applications\n" : "\n");
  }
  if (trust.publicKeys.empty()) {
    std::cout << "no key: this executor trusts no publisher and runs no update\n";
  }
}

void Set(const Arguments& arguments) {
  const std::string before = ReadWholeFile(arguments.file);
  const std::string after = About(arguments.file, [&] {
    PeFile executor(before);
    if (executor.IsSigned()) {
      throw std::runtime_error("it is signed already; set the trust first, then sign");
    }
    const std::optional<std::string> text = FormatTrust(arguments.trust);
    if (!text)
      throw std::runtime_error("the trust does not fit: too many keys or ids, or a bad name");
    executor.ReplaceResource(kResource, *text);
    return executor.Bytes();
  });
  if (after != before) ReplaceWholeFile(arguments.file, after);
  Print(arguments.trust);
}

void Show(const Arguments& arguments) {
  const std::string bytes = ReadWholeFile(arguments.file);
  const std::optional<TrustAnchors> trust =
      About(arguments.file, [&] { return ParseTrust(PeFile(bytes).Resource(kResource)); });
  if (!trust) throw std::runtime_error(arguments.file + ": its trust is damaged; set it again");
  Print(*trust);
}

}  // namespace

void AddTrustCommand(CLI::App* app) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const trust = app->add_subcommand("trust", "The publishers that an executor trusts");
  trust->require_subcommand(1);

  CLI::App* const set = trust->add_subcommand(
      "set", "Write public keys into kupdate-exec.exe, in the place of those that it has");
  set->add_option("FILE", arguments->file, "kupdate-exec.exe, not yet signed")->required();
  set->add_option("--publisher", arguments->trust.publisher, "The publisher's name, for people");
  set->add_option_function<std::string>(
         "--key",
         [arguments](const std::string& file) {
           const std::string pem = ReadWholeFile(file);
           arguments->trust.publicKeys.push_back(
               {About(file, [&] { return PublicKeyFromPem(pem); }), {}});
         },
         "A public key (PEM, P-256) that may sign updates; may be given several times")
      ->required()
      ->trigger_on_parse()
      ->allow_extra_args(false);
  set->add_option_function<std::string>(
         "--for",
         [arguments](const std::string& id) {
           if (arguments->trust.publicKeys.empty()) {
             throw CLI::ValidationError("--for", "belongs behind the --key that it binds");
           }
           arguments->trust.publicKeys.back().apps.push_back(id);
         },
         "An application that the key before it may sign for; without one, all")
      ->trigger_on_parse()
      ->allow_extra_args(false);
  set->callback([arguments] { Set(*arguments); });

  CLI::App* const show = trust->add_subcommand("show", "Print the keys that an executor trusts");
  show->add_option("FILE", arguments->file, "kupdate-exec.exe")->required();
  show->callback([arguments] { Show(*arguments); });
}
