#include <foundation/toolkit/Explanation.hpp>

#include "FailureWords.hpp"
#include "VerdictWords.hpp"

#include <openssl/x509_vfy.h>

#include <charconv>
#include <cstddef>
#include <new>
#include <optional>
#include <utility>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

/// Reads a text from its beginning.
class Reader
{
public:
    explicit Reader(std::string_view theText) : text(theText) {}

    /// Skips the word. Returns false, and skips nothing, if the text goes on otherwise.
    bool skip(std::string_view word)
    {
        if (text.substr(0, word.size()) != word) {
            return false;
        }
        text.remove_prefix(word.size());
        return true;
    }

    std::optional<int> number()
    {
        int value = 0;
        auto const result = std::from_chars(text.data(), text.data() + text.size(), value);
        if (result.ec != std::errc()) {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
        return value;
    }

    std::optional<std::string> textBefore(std::string_view end)
    {
        auto const size = text.find(end);
        if (size == std::string_view::npos) {
            return std::nullopt;
        }
        std::string found(text.substr(0, size));
        text.remove_prefix(size);
        return found;
    }

private:
    std::string_view text;
};

/// Where a validation failed.
struct Place
{
    int errorCode;
    int depth;
    std::string subject;
};

/// Reads the report that a validation writes about its error; nothing from any other text. For `Failed`, the
/// report has its code in front once more.
std::optional<Place> placeFrom(std::string_view text)
{
    Reader reader(text);
    if (reader.skip("Validation Failed. Return code=") && !(reader.number() && reader.skip("."))) {
        return std::nullopt;
    }
    if (!reader.skip("Errors present: Error code ")) {
        return std::nullopt;
    }
    auto const code = reader.number();
    if (!code || !reader.skip("  at depth ")) {
        return std::nullopt;
    }
    auto const depth = reader.number();
    if (!depth || !reader.skip("Certificate Subject Name=")) {
        return std::nullopt;
    }
    auto subject = reader.textBefore("\n. \nMessage:");
    if (!subject) {
        return std::nullopt;
    }
    return Place{*code, *depth, std::move(*subject)};
}

constexpr Words outOfMemory{"The process ran out of memory.", lookAtMemory, "Free memory and try again."};

Explanation explained(Place place, Words const& words)
{
    return {place.errorCode,           place.depth,
            std::move(place.subject),  std::string(words.message),
            std::string(words.advice), std::string(words.check)};
}

Explanation explainedVerdict(CertificateChainStatus status, Place place)
{
    auto const words = wordsFor(status, place.errorCode);
    return explained(std::move(place), words);
}

Place placeWithoutText(CertificateChainStatus status)
{
    switch (status) {
    case CertificateChainStatus::Valid:
        return {X509_V_OK, 0, {}};
    case CertificateChainStatus::SelfSigned:
        return {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, 0, {}};
    case CertificateChainStatus::Untrusted:
    case CertificateChainStatus::CRLError:
    case CertificateChainStatus::Revoked:
    case CertificateChainStatus::Expired:
    case CertificateChainStatus::BadSignature:
    case CertificateChainStatus::Failed:
        break;
    }
    return {X509_V_ERR_UNSPECIFIED, 0, {}};
}

} // namespace

Explanation explain(CertificateValidationResults const& results)
{
    auto const status = results.getCertificateChainStatus();
    auto const place = status == CertificateChainStatus::Valid
                           ? std::nullopt
                           : placeFrom(results.getValidationErrorString());
    return explainedVerdict(status, place.value_or(placeWithoutText(status)));
}

Explanation explain(PathResult const& result)
{
    Place place{result.errorCode, result.errorDepth, {}};
    if (!result.isValid() && place.depth >= 0 &&
        static_cast<std::size_t>(place.depth) < result.chain.size()) {
        place.subject = result.chain[static_cast<std::size_t>(place.depth)].getSubject();
    }
    return explainedVerdict(result.status, std::move(place));
}

Explanation explain(std::exception const& failure)
{
    if (dynamic_cast<std::bad_alloc const*>(&failure) != nullptr) {
        return explained({}, outOfMemory);
    }
    std::string_view const text = failure.what();
    Words const otherwise{
        text, "Look up the text in the documentation of the function that was called.",
        "Correct the input that the message names."};
    return explained({}, wordsForFailure(text).value_or(otherwise));
}

} // namespace foundation::toolkit
