#include "Unpack.hpp"

#include "CommonOptions.hpp"
#include "Files.hpp"
#include "OutputFiles.hpp"
#include "Passphrase.hpp"
#include "Text.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/PrivateKeys.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace foundation::tools {

using certificates::ByteArray;
using certificates::CertificateException;
using certificates::PKCS12Certificate;
using toolkit::Certificate;
using toolkit::SecretString;

namespace {

struct UnpackOptions
{
    std::string bundle;
    std::optional<std::string> passphraseFile;
    std::string key;
    std::string certificate;
    std::string chain;
    bool force = false;
};

std::string certificateIn(PKCS12Certificate const& bundle)
{
    auto const certificate = bundle.getCertificate();
    if (certificate.empty()) {
        throw CertificateException("The bundle holds no certificate for a private key.");
    }
    return Certificate(certificate).getAsPEM();
}

std::string chainIn(PKCS12Certificate const& bundle)
{
    std::string chain;
    for (auto const& certificate : bundle.getCAChain().getCertificates()) {
        chain += Certificate(certificate).getAsPEM();
    }
    if (chain.empty()) {
        throw CertificateException("The bundle holds no further certificates.");
    }
    return chain;
}

void unpack(UnpackOptions const& options, ByteArray const& content, std::string const& passphrase)
{
    PKCS12Certificate const bundle(content, passphrase);
    auto const key = options.key.empty() ? SecretString("") : toolkit::privateKeyAsPEM(bundle, passphrase);
    auto const certificate = options.certificate.empty() ? "" : certificateIn(bundle);
    auto const chain = options.chain.empty() ? "" : chainIn(bundle);
    writeFiles(
        {{options.key, key.view(), true}, {options.certificate, certificate}, {options.chain, chain}},
        options.force);
}

ExitStatus unpack(UnpackOptions const& options)
{
    if (options.key.empty() && options.certificate.empty() && options.chain.empty()) {
        throw std::runtime_error("nothing to write: give --key, --certificate or --chain");
    }
    auto const content = contentOf(options.bundle);
    auto const passphrase = readPassphrase(options.passphraseFile);
    try {
        unpack(options, ByteArray(content.begin(), content.end()), passphrase);
        return ExitStatus::Good;
    } catch (CertificateException const& refusal) {
        std::cerr << errorLine(options.bundle + ": " + toolkit::explain(refusal).message);
        return ExitStatus::Finding;
    }
}

} // namespace

void addUnpack(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<UnpackOptions>();
    auto& command = *program.add_subcommand("unpack", "Writes the contents of a PKCS#12 bundle to PEM files");
    command.add_option("BUNDLE", options->bundle, "File with the bundle")->required();
    addPassphraseOption(command, options->passphraseFile);
    command
        .add_option(
            "--key", options->key, "File for the private key, not encrypted; only its owner can read it")
        ->type_name("OUT");
    command.add_option("--certificate", options->certificate, "File for the certificate of the private key")
        ->type_name("OUT");
    command.add_option("--chain", options->chain, "File for all other certificates")->type_name("OUT");
    addForceOption(command, options->force);
    command.callback([options, &action] { action = [options] { return unpack(*options); }; });
}

} // namespace foundation::tools
