#include "Verify.hpp"

#include "CommonOptions.hpp"
#include "Json.hpp"
#include "SignedFile.hpp"
#include "Terminal.hpp"
#include "Text.hpp"
#include "Verdict.hpp"

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace foundation::tools {

using certificates::TrustStore;
using toolkit::Certificate;
using toolkit::PathResult;

namespace {

struct VerifyOptions
{
    std::string file;
    std::optional<std::string> content;
    TrustOptions trust;
    bool json = false;
};

/// Returns a verdict on the chain of each signer.
std::vector<PathResult>
verdictsOn(SignedFile const& signedFile, std::vector<Certificate> const& further, TrustOptions const& trust)
{
    auto const validator = validatorFor(trust, TrustStore::Usage::Signing);
    auto intermediates = signedFile.certificates;
    intermediates.insert(intermediates.end(), further.begin(), further.end());
    std::vector<PathResult> verdicts;
    for (auto const& signer : signedFile.signers) {
        verdicts.push_back(validator.validate(signer, intermediates));
    }
    return verdicts;
}

std::string described(SignedFile const& signedFile, std::vector<PathResult> const& verdicts)
{
    if (!signedFile.isValid) {
        return "Signature: " + inRed("Not valid") + ": " + printable(signedFile.reason) + "\n";
    }
    std::string text = "Signature: " + inGreen("Valid") + "\n";
    for (auto const& verdict : verdicts) {
        text += "Signer: " + printable(verdict.chain.front().getSubject()) + "\n" + verdictLines(verdict);
    }
    return text;
}

JsonObject
recordOf(std::string const& source, SignedFile const& signedFile, std::vector<PathResult> const& verdicts)
{
    auto record = newRecord("verify");
    record.addText("source", source);
    record.addBoolean("signatureValid", signedFile.isValid);
    record.addText("reason", signedFile.reason);
    std::vector<JsonObject> signers;
    for (auto const& verdict : verdicts) {
        addVerdict(signers.emplace_back(), verdict);
    }
    record.addObjects("signers", signers);
    return record;
}

ExitStatus verify(VerifyOptions const& options)
{
    auto const further = intermediatesOf(options.trust);
    auto const signedFile = readSignedFile(options.file, options.content, further);
    auto const verdicts = verdictsOn(signedFile, further, options.trust);
    bool const areTrusted = std::all_of(
        verdicts.begin(), verdicts.end(), [](PathResult const& verdict) { return verdict.isValid(); });
    std::cout
        << (options.json ? jsonLine(recordOf(options.file, signedFile, verdicts))
                         : described(signedFile, verdicts));
    return signedFile.isValid && areTrusted ? ExitStatus::Good : ExitStatus::Finding;
}

} // namespace

void addVerify(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<VerifyOptions>();
    auto& command = *program.add_subcommand(
        "verify", "Prints whether the signatures of PKCS#7 signed data are valid and their signers trusted");
    command.add_option("SIGNED", options->file, "File with the signed data, in PEM or DER")->required();
    command
        .add_option(
            "--content", options->content,
            "File with the content, if it is not inside the signed data; it may be larger than the memory")
        ->type_name("FILE");
    addTrustOptions(command, options->trust);
    addJsonOption(command, options->json);
    command.callback([options, &action] { action = [options] { return verify(*options); }; });
}

} // namespace foundation::tools
