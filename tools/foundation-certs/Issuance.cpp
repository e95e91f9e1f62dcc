#include "Issuance.hpp"

#include "CommonOptions.hpp"
#include "Files.hpp"
#include "OutputFiles.hpp"

#include <foundation/toolkit/Issuance.hpp>

#include <chrono>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace foundation::tools {

using namespace foundation::toolkit;

namespace {

constexpr int defaultDays = 90;
constexpr int maximumDays = 3650;

/// What a request and a certificate have in common.
struct IdentityOptions
{
    std::string name;
    std::vector<std::string> alternatives;
    std::string keyType = "p256";
    std::string key;
};

struct RequestOptions : IdentityOptions
{
    std::string request;
};

struct MakeOptions : IdentityOptions
{
    int days = defaultDays;
    std::string authority;
    std::string authorityKey;
    std::string certificate;
    bool force = false;
};

std::map<std::string, KeyChoice> const& keyTypes()
{
    static std::map<std::string, KeyChoice> const types{
        {"p256", KeyChoice::Prime256v1}, {"p384", KeyChoice::Secp384r1},  {"ed25519", KeyChoice::Ed25519},
        {"rsa2048", KeyChoice::RSA2048}, {"rsa3072", KeyChoice::RSA3072}, {"rsa4096", KeyChoice::RSA4096}};
    return types;
}

AlternativeName alternativeNameFrom(std::string const& text)
{
    using Kind = AlternativeName::Kind;
    static std::map<std::string, Kind> const kinds{
        {"DNS", Kind::DNS}, {"IP", Kind::IPAddress}, {"email", Kind::Email}, {"URI", Kind::URI}};
    auto const colon = text.find(':');
    auto const kind = kinds.find(text.substr(0, colon));
    if (colon == std::string::npos || kind == kinds.end()) {
        throw std::runtime_error(text + ": an alternative name is DNS:x, IP:x, email:x or URI:x");
    }
    return {kind->second, text.substr(colon + 1)};
}

CertificateRequest requestFor(IdentityOptions const& options, SecretString const& key)
{
    std::vector<AlternativeName> names;
    for (auto const& text : options.alternatives) {
        names.push_back(alternativeNameFrom(text));
    }
    return CertificateRequest::make({{"CN", options.name}}, names, key);
}

/// Signs with the CA's key, or with the key itself if there is no CA.
Certificate
certificateFor(MakeOptions const& options, CertificateRequest const& request, SecretString const& key)
{
    auto const now = std::chrono::system_clock::now();
    auto const builder = EndEntityCertificateBuilder()
                             .fromRequest(request)
                             .withPurposes({Purpose::TLSServer, Purpose::TLSClient})
                             .withValidity(now, now + std::chrono::hours(24 * options.days));
    if (options.authority.empty()) {
        return builder.signSelf(key);
    }
    SecretString const authorityKey(contentOf(options.authorityKey));
    return builder.signBy(certificatesIn(options.authority).front(), authorityKey, request);
}

ExitStatus makeRequest(RequestOptions const& options)
{
    auto const key = makePrivateKey(keyTypes().at(options.keyType));
    auto const request = requestFor(options, key).getAsPEM();
    writeFiles({{options.key, key.view(), true}, {options.request, request}}, false);
    return ExitStatus::Good;
}

ExitStatus makeCertificate(MakeOptions const& options)
{
    auto const key = makePrivateKey(keyTypes().at(options.keyType));
    auto const certificate = certificateFor(options, requestFor(options, key), key).getAsPEM();
    writeFiles({{options.key, key.view(), true}, {options.certificate, certificate}}, options.force);
    return ExitStatus::Good;
}

void addIdentityOptions(CLI::App& command, IdentityOptions& options)
{
    command.add_option("--name", options.name, "The common name of the subject")->type_name("CN")->required();
    command
        .add_option(
            "--alternative", options.alternatives,
            "An alternative name: DNS:x, IP:x, email:x or URI:x. May be given several times")
        ->type_name("KIND:NAME")
        ->allow_extra_args(false);
    command.add_option("--key-type", options.keyType, "The kind of the new key")
        ->type_name("TYPE")
        ->check(CLI::IsMember({"p256", "p384", "ed25519", "rsa2048", "rsa3072", "rsa4096"}))
        ->capture_default_str();
    command.add_option("--key", options.key, "File for the new key; only its owner can read it")
        ->type_name("OUT")
        ->required();
}

} // namespace

void addRequest(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<RequestOptions>();
    auto& command = *program.add_subcommand("request", "Makes a private key and a certificate request");
    addIdentityOptions(command, *options);
    command.add_option("--request", options->request, "File for the request")->type_name("OUT")->required();
    command.callback([options, &action] { action = [options] { return makeRequest(*options); }; });
}

void addMake(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<MakeOptions>();
    auto& command =
        *program.add_subcommand("make", "Makes a private key and a certificate for a TLS server or client");
    addIdentityOptions(command, *options);
    command.add_option("--days", options->days, "Days that the certificate is valid")
        ->type_name("N")
        ->check(CLI::Range(1, maximumDays))
        ->capture_default_str();
    auto* const authority =
        command
            .add_option(
                "--ca", options->authority,
                "File with the certificate of the CA that signs; without it, the certificate signs itself")
            ->type_name("FILE");
    auto* const authorityKey =
        command
            .add_option("--ca-key", options->authorityKey, "File with the CA's private key, not encrypted")
            ->type_name("FILE");
    authority->needs(authorityKey);
    authorityKey->needs(authority);
    command.add_option("--certificate", options->certificate, "File for the certificate")
        ->type_name("OUT")
        ->required();
    addForceOption(command, options->force);
    command.callback([options, &action] { action = [options] { return makeCertificate(*options); }; });
}

} // namespace foundation::tools
