#include "support/InputOptions.hpp"
#include "support/KeyDerivationCost.hpp"
#include "support/Properties.hpp"
#include "support/Text.hpp"
#include "support/openssl/Handles.hpp"

#include <foundation/toolkit/CertificateReader.hpp>

#include <openssl/asn1t.h>
#include <openssl/pkcs12.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

// The reader of certificates from any source. The input holds the content of a source and a passphrase.

namespace foundation::fuzz {

namespace {

using toolkit::Certificate;
using toolkit::CertificateReader;
using toolkit::ReadCertificate;

/// The passphrase of the input, for the bundles in it.
std::string& passphraseOfInput()
{
    static std::string passphrase;
    return passphrase;
}

/// Delivers one byte at a time.
class ByteByByte : public std::streambuf
{
public:
    explicit ByteByByte(std::string content) : text(std::move(content)) {}

protected:
    int_type underflow() override
    {
        if (position == text.size()) {
            return traits_type::eof();
        }
        setg(&text[position], &text[position], &text[position] + 1);
        return traits_type::to_int_type(text[position++]);
    }

private:
    std::string text;
    std::size_t position = 0;
};

std::vector<ReadCertificate> resultsOf(std::istream& stream)
{
    CertificateReader reader(stream, "source");
    reader.withPassphrase(passphraseOfInput());
    std::vector<ReadCertificate> results;
    queueStaleError();
    mustSucceed("no input makes the reader throw", [&] {
        while (auto read = reader.next()) {
            results.push_back(*read);
        }
        require(!reader.next(), "nothing follows the end");
    });
    requireStaleErrorAlone("after reading");
    clearErrorQueue();
    return results;
}

std::vector<ReadCertificate> resultsOf(std::string const& content)
{
    std::istringstream stream(content);
    return resultsOf(stream);
}

void checkNumbers(std::vector<ReadCertificate> const& results)
{
    require(!results.empty(), "each source has a result");
    std::size_t numCounted = 0;
    for (auto const& read : results) {
        require(read.source == "source", "a result names its source");
        require(
            read.certificate.has_value() == read.failure.empty(), "a result is a certificate or a failure");
        require(!read.certificate || read.index != 0, "each certificate has an index");
        require(read.index == 0 || read.index == ++numCounted, "indices ascend without gaps");
    }
}

void checkCertificate(Certificate const& certificate)
{
    auto const der = certificate.getAsDER();
    for (std::string const& content : {std::string(der.begin(), der.end()), certificate.getAsPEM()}) {
        auto const again = resultsOf(content);
        require(
            again.size() == 1 && again.front().certificate && *again.front().certificate == certificate,
            "a certificate that was read is read again from what it is written to");
    }
}

void checkSame(std::vector<ReadCertificate> const& left, std::vector<ReadCertificate> const& right)
{
    require(left.size() == right.size(), "reading in pieces finds as much");
    for (std::size_t index = 0; index < left.size(); ++index) {
        require(
            left[index].index == right[index].index && left[index].failure == right[index].failure &&
                left[index].certificate == right[index].certificate,
            "reading in pieces finds the same");
    }
}

void check(std::string const& content)
{
    auto const results = resultsOf(content);
    checkNumbers(results);
    for (auto const& read : results) {
        if (read.certificate) {
            checkCertificate(*read.certificate);
        }
    }
    ByteByByte pieces(content);
    std::istream stream(&pieces);
    checkSame(results, resultsOf(stream));
}

} // namespace

} // namespace foundation::fuzz

/// Replaces OpenSSL's function for the reader. A bundle may ask for billions of rounds of key derivation,
/// which is no defect of the reader. Here it counts as damaged.
extern "C" PKCS12* d2i_PKCS12(PKCS12** target, unsigned char const** position, long length)
{
    constexpr long long mostRounds = 5000;
    auto* const bundle = reinterpret_cast<PKCS12*>(
        ASN1_item_d2i(reinterpret_cast<ASN1_VALUE**>(target), position, length, ASN1_ITEM_rptr(PKCS12)));
    if (bundle == nullptr) {
        return nullptr;
    }
    // A thread of its own has its own error queue. The errors would not fit into the queue of this thread.
    auto rounds = std::async(std::launch::async, [&] {
        auto const borrowed = foundation::test::Pkcs12Handle(bundle, [](PKCS12*) {});
        return foundation::fuzz::keyDerivationRounds(borrowed, foundation::fuzz::passphraseOfInput());
    });
    if (rounds.get() > mostRounds) {
        PKCS12_free(bundle);
        return nullptr;
    }
    return bundle;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace foundation::fuzz;
    constexpr std::size_t longestPassphrase = 63;
    if (auto const input = splitInput(data, size, longestPassphrase)) {
        passphraseOfInput() = std::string(input->text.begin(), input->text.end());
        check(foundation::test::asText(input->container));
    }
    return 0;
}
