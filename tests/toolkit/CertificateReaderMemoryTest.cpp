#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/CertificateReader.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

/// Returns everything that the reader returns, as text.
std::string resultsOf(CertificateReader& reader)
{
    std::string results;
    while (auto const read = reader.next()) {
        results +=
            std::to_string(read->index) + " " + (read->certificate ? "certificate" : read->failure) + "\n";
    }
    return results;
}

struct Content : Unchanging
{
    std::string text;
};

Failures readerFailures()
{
    return {
        failure<X509CertificateException>("Internal error: OpenSSL ran out of memory."),
        failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions.")};
}

/// Small enough to refuse allocations in every part of a structure.
constexpr std::size_t stride = 3;

std::vector<SweptOperation> readsOf(std::string const& name, std::string const& text)
{
    auto const read = [](Content const& content) {
        std::istringstream stream(content.text);
        CertificateReader reader(stream, "source");
        return resultsOf(reader.withPassphrase("secret"));
    };
    return operationsOn<Content>(
        "of ",
        [=] {
            return Content{{}, text};
        },
        {{name, read, failsWith(readerFailures(), stride), withStride(stride)}});
}

std::vector<SweptOperation> readsOfFolder()
{
    auto const folder = std::make_shared<TemporaryFolder>();
    auto const root = makeRoot("a");
    folder->write("b.pem", root.pem());
    std::filesystem::create_directory(folder->path() / "inside");
    folder->write("inside/a.pem", root.pem());
    auto const read = [folder](Content const& /*content*/) {
        CertificateReader reader(folder->path());
        return resultsOf(reader);
    };
    return operationsOn<Content>(
        "of ", [] { return Content(); },
        {{"a folder", read, failsWith(readerFailures(), stride), withStride(stride)}});
}

std::string signedData()
{
    SignedDataSpec spec;
    spec.furtherCertificates = {makeRoot("a").certificate, makeRoot("b").certificate};
    return asText(toDer(makeSignedData(spec)));
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(PEM, readsOf("PEM", makeRoot("a").pem() + makeRoot("b").pem()));
FOUNDATION_TEST_ALLOCATION_FAILURE(DER, readsOf("DER", asText(makeRoot("a").der())));
FOUNDATION_TEST_ALLOCATION_FAILURE(SignedData, readsOf("PKCS7", signedData()));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Bundle, readsOf("PKCS12", asText(toDer(makePkcs12(makeRoot("a"), "secret")))));
FOUNDATION_TEST_ALLOCATION_FAILURE(Files, readsOfFolder());
