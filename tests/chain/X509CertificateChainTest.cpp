#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/StreamBuffers.hpp"

#include "certificate/X509Access.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/X509CertificateChainImpl.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <gtest/gtest.h>

#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const parseFailure[] =
    "Error: Unable to parse X509 certificate inside X509 certificate chain.";
constexpr char const loadFailure[] = "Error: Loading a certificate chain failed. Reason=";

Topology const& pki()
{
    static Topology const topology(
        {{"root", ""}, {"intermediate", "root"}, {"leaf", "intermediate"}, {"other leaf", "root"}});
    return topology;
}

X509Certificate certificate(std::string const& name)
{
    return X509Certificate(pki()[name].der());
}

X509CertificateChain chainOf(std::vector<std::string> const& names)
{
    X509CertificateChain chain;
    for (std::string const& name : names) {
        chain.addCertificate(certificate(name));
    }
    return chain;
}

/// Returns the common names in order, as a readable form of the chain.
std::string namesIn(X509CertificateChain const& chain)
{
    std::string names;
    for (X509Certificate const& member : chain.getCertificates()) {
        names += (names.empty() ? "" : " -> ") + member.getSubjectCommonName();
    }
    return names;
}

/// Returns the oldest reason that OpenSSL queues when it reads the text alone.
std::string openSSLsReasonFor(std::string const& text)
{
    CleanErrorQueue const clean;
    auto const bio = own(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    STACK_OF(X509_INFO)* const entries = PEM_X509_INFO_read_bio(bio.get(), nullptr, nullptr, nullptr);
    sk_X509_INFO_pop_free(entries, X509_INFO_free);
    return oldestReasonText();
}

/// Replaces one character of the base64 by one outside its alphabet.
std::string damaged(std::string pem)
{
    pem[pem.size() / 2] = '*';
    return pem;
}

std::string withDosLineEnds(std::string const& text)
{
    std::string result;
    for (char const character : text) {
        result += character == '\n' ? "\r\n" : std::string(1, character);
    }
    return result;
}

X509CertificateChainImpl implementationOf(std::vector<std::string> const& names)
{
    return X509CertificateChainImpl(pki().pemBundle(names));
}

} // namespace

TEST(X509CertificateChainDefault, IsEmpty)
{
    X509CertificateChain chain;
    EXPECT_TRUE(chain.empty());
    EXPECT_EQ(chain.getNumCertificates(), 0U);
    EXPECT_EQ(chain.getCertificates(), std::vector<X509Certificate>());
    EXPECT_EQ(chain.getAsString(), "");
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "X509CertificateChain has no content.", chain.popLeafCertificate());
}

TEST(X509CertificateChainLoad, KeepsOrderOfText)
{
    X509CertificateChain const chain(pki().pemBundle({"intermediate", "leaf", "root"}));
    EXPECT_EQ(chain.getNumCertificates(), 3U);
    EXPECT_FALSE(chain.empty());
    EXPECT_EQ(namesIn(chain), "intermediate -> leaf -> root");
}

TEST(X509CertificateChainLoad, SkipsTextAroundBlocks)
{
    std::string const text = "# our roots\n\nsubject=root\n" + pki()["root"].pem() + "between\n\n" +
                             pki()["leaf"].pem() + "and behind\n";
    EXPECT_EQ(namesIn(X509CertificateChain(text)), "root -> leaf");
}

TEST(X509CertificateChainLoad, EndsAtFirstNul)
{
    std::string const text = pki()["root"].pem() + std::string(1, '\0') + pki()["leaf"].pem();
    EXPECT_EQ(namesIn(X509CertificateChain(text)), "root");
}

TEST(X509CertificateChainLoad, AcceptsOldAndTrustedLabels)
{
    std::string text = pki()["root"].pem();
    for (std::string const marker : {"-----BEGIN ", "-----END "}) {
        text.replace(
            text.find(marker + "CERTIFICATE"), (marker + "CERTIFICATE").size(), marker + "X509 CERTIFICATE");
    }
    EXPECT_EQ(namesIn(X509CertificateChain(text)), "root");

    for (std::string const marker : {"-----BEGIN ", "-----END "}) {
        text.replace(text.find(marker + "X509"), (marker + "X509").size(), marker + "TRUSTED");
    }
    EXPECT_EQ(namesIn(X509CertificateChain(text)), "root");
}

TEST(X509CertificateChainLoad, ForgetsTrustSettings)
{
    auto const object = parseDer(pki()["root"].der());
    require(X509_add1_trust_object(object.get(), OBJ_nid2obj(NID_email_protect)));
    require(X509_add1_reject_object(object.get(), OBJ_nid2obj(NID_server_auth)));
    X509CertificateChain const chain(asText(writtenBy(PEM_write_bio_X509_AUX, object.get())));
    auto const shared = X509Access::share(chain.getCertificates().at(0));
    EXPECT_EQ(X509_get0_trust_objects(shared.get()), nullptr);
    EXPECT_EQ(X509_get0_reject_objects(shared.get()), nullptr);
}

TEST(X509CertificateChainLoad, KeepsDuplicateCertificate)
{
    EXPECT_EQ(namesIn(X509CertificateChain(pki().pemBundle({"root", "root"}))), "root -> root");
}

TEST(X509CertificateChainLoad, AcceptsUnreadableExtensions)
{
    auto const damaged = makeLeaf(pki()["root"], "damaged", [](CertificateSpec& spec) {
        spec.setRawExtension("basicConstraints", {0x30, 0x05, 0x01});
    });
    CleanErrorQueue const clean;
    EXPECT_EQ(namesIn(X509CertificateChain(damaged.pem() + pki()["root"].pem())), "damaged -> root");
    EXPECT_TRUE(queueIsEmpty());
}

TEST(X509CertificateChainLoad, RefusesEmptyText)
{
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The provided certificate chain string has no content.",
        X509CertificateChain(std::string()));
    std::istringstream stream("");
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The provided certificate chain string has no content.",
        X509CertificateChain(stream));
}

TEST(X509CertificateChainLoad, RefusesTextWithoutCertificate)
{
    Bytes const der = pki()["root"].der();
    std::vector<std::string> const texts = {
        "no PEM at all",
        "\n",
        std::string(1, '\0') + pki()["root"].pem(),
        std::string(der.begin(), der.end()),
        "-----BEGIN CERTIFICATE-----",
        "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n",
        "-----BEGIN NOVELTY-----\nAAAA\n-----END NOVELTY-----\n",
    };
    for (std::string const& text : texts) {
        SCOPED_TRACE(text);
        EXPECT_THROWS_EXACTLY(
            X509CertificateChainException, loadFailure + openSSLsReasonFor(text.c_str()),
            X509CertificateChain(text));
    }
}

TEST(X509CertificateChainLoad, RefusesTextWithDamagedBlock)
{
    std::string const root = pki()["root"].pem();
    std::string const leaf = pki()["leaf"].pem();
    std::string const garbage = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";
    for (std::string const& text :
         {root + damaged(leaf), damaged(root) + leaf, root + leaf.substr(0, leaf.size() / 2),
          root + garbage}) {
        SCOPED_TRACE(text);
        EXPECT_NE(openSSLsReasonFor(text), "");
        EXPECT_THROWS_EXACTLY(
            X509CertificateChainException, loadFailure + openSSLsReasonFor(text), X509CertificateChain(text));
    }
}

TEST(X509CertificateChainLoad, RefusesTextWithDamagedBlockInMiddle)
{
    std::string const middle = pki()["intermediate"].pem();
    auto const endLine = middle.find("-----END");
    auto const beginLine = middle.find('\n');
    // Without an END line OpenSSL reads on to the END line of the next block and reports nothing.
    std::string const noEnd = reasonText(ERR_LIB_PEM, PEM_R_BAD_END_LINE);
    struct
    {
        char const* name;
        std::string middle;
        std::string reason;
    } const rows[] = {
        {"base64 with a foreign character", damaged(middle), ""},
        {"base64 with padding inside", std::string(middle).replace(endLine / 2, 1, "="), ""},
        {"base64 without one character", std::string(middle).erase(endLine / 2, 1), ""},
        {"half a block", middle.substr(0, endLine / 2), ""},
        {"an END line of another kind", middle.substr(0, endLine) + "-----END NOVELTY-----\n", ""},
        {"no END line", middle.substr(0, endLine), noEnd},
        {"no END line and DOS line ends", withDosLineEnds(middle.substr(0, endLine)), noEnd},
        {"no END line, and a byte order mark", "\xEF\xBB\xBF" + middle.substr(0, endLine), noEnd},
        {"no END line, and a BEGIN line with trailing bytes",
         middle.substr(0, endLine).insert(beginLine, " \t\xC3\xA4"), noEnd},
        {"no END line, and blank lines", middle.substr(0, endLine) + "\n\n", ""},
        {"an END line without a label", middle.substr(0, endLine) + "-----END \n", noEnd},
        {"another word than END", std::string(middle).replace(endLine, 8, "-----FIN"), noEnd},
        {"an END marker inside a line", std::string(middle).erase(endLine - 1, 1), noEnd},
        {"a BEGIN line inside", std::string(middle).insert(endLine, "-----BEGIN CERTIFICATE-----\n"), noEnd},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const text = pki()["root"].pem() + row.middle + pki()["leaf"].pem();
        auto const reason = openSSLsReasonFor(text);
        EXPECT_EQ(reason.empty(), !row.reason.empty());
        EXPECT_THROWS_EXACTLY(
            X509CertificateChainException, loadFailure + (reason.empty() ? row.reason : reason),
            X509CertificateChain(text));
    }
}

TEST(X509CertificateChainLoad, SkipsLinesThatResembleMarkers)
{
    auto const root = pki()["root"].pem();
    auto const leaf = pki()["leaf"].pem();
    for (std::string const between :
         {"-----END CERTIFICATE-----\n", "-----BEGIN\n", "-----BEGIN \n", "-----BEGIN CERTIFICATE\n",
          " -----BEGIN CERTIFICATE-----\n", "\n-----\n", "-----BEGIN CERTIFICATE----- and more\n"}) {
        SCOPED_TRACE(between);
        EXPECT_EQ(namesIn(X509CertificateChain(root + between + between + leaf)), "root -> leaf");
    }
    // OpenSSL reads a line in pieces of 254 characters. No piece is a BEGIN line here.
    auto const longLine = "-----BEGIN " + std::string(300, 'x') + "-----\n";
    EXPECT_EQ(namesIn(X509CertificateChain(root + longLine + leaf)), "root -> leaf");
    // The text ends at its first NUL character.
    EXPECT_EQ(
        namesIn(X509CertificateChain(root + std::string(1, '\0') + leaf.substr(0, 100) + leaf)), "root");
}

TEST(X509CertificateChainLoad, FindsEndLineAfterFullPieceOfLine)
{
    // For OpenSSL, a new line begins after 254 characters of a line.
    auto base64 = certificate("root").getAsString();
    base64.insert(base64.size() - 254, "\n");
    auto const root = "-----BEGIN CERTIFICATE-----\n" + base64 + "-----END CERTIFICATE-----\n";
    EXPECT_EQ(openSSLsReasonFor(root), "");
    EXPECT_EQ(namesIn(X509CertificateChain(root)), "root");
    EXPECT_EQ(namesIn(X509CertificateChain(root + pki()["leaf"].pem())), "root -> leaf");
}

TEST(X509CertificateChainLoad, SkipsBlocksWithOtherContent)
{
    auto const root = pki()["root"].pem();
    auto const leaf = pki()["leaf"].pem();
    for (std::string const label :
         {"PUBLIC KEY", "CERTIFICATE REQUEST", "PKCS7", "EC PARAMETERS", "NOVELTY"}) {
        SCOPED_TRACE(label);
        auto const block = "-----BEGIN " + label + "-----\nAAAA\n-----END " + label + "-----\n";
        EXPECT_EQ(namesIn(X509CertificateChain(block + root + block + leaf + block)), "root -> leaf");
    }
}

TEST(X509CertificateChainLoad, RefusesKeysAndCRLs)
{
    std::string const certificates = pki().pemBundle({"leaf", "root"});
    std::string const key = toPem(pki()["leaf"].key);
    std::string const encryptedKey = toPem(pki()["leaf"].key, "secret");
    std::string const crl = toPem(makeCrl(pki()["root"]));
    for (std::string const& text :
         {key, crl, certificates + key, key + certificates, certificates + key + key, certificates + crl,
          crl + certificates, certificates + encryptedKey, key + crl}) {
        SCOPED_TRACE(text);
        EXPECT_THROWS_EXACTLY(
            X509CertificateChainException,
            std::string(parseFailure) + "Error: X509Certificate has no content.", X509CertificateChain(text));
    }
}

TEST(X509CertificateChainLoad, RefusesTextWithUnsupportedKey)
{
    auto const weak = makeRoot("weak", [](CertificateSpec& spec) { spec.key = rsaKey(1023); });
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException,
        std::string(parseFailure) + "RSA key size does not meet minimum cryptographic requirements",
        X509CertificateChain(pki()["root"].pem() + weak.pem()));

    auto const strange = makeRoot("strange", [](CertificateSpec& spec) { spec.key = ed448Key(); });
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException,
        std::string(parseFailure) + "Key uses Ed448, which is not currently supported",
        X509CertificateChain(strange.pem() + pki()["root"].pem()));
}

TEST(X509CertificateChainLoad, IgnoresErrorsOfCallerAndLeavesNone)
{
    CleanErrorQueue const clean;
    queueForeignError();
    EXPECT_EQ(namesIn(X509CertificateChain(pki().pemBundle({"root", "leaf"}))), "root -> leaf");
    EXPECT_TRUE(queueIsEmpty());

    queueForeignError();
    EXPECT_THROWS_WITH_PREFIX(
        X509CertificateChainException, loadFailure, X509CertificateChain(damaged(pki()["root"].pem())));
    EXPECT_TRUE(queueIsEmpty());
}

TEST(X509CertificateChainStream, IsReadToEndAndKeepsItsFlags)
{
    std::istringstream stream("  \n" + pki().pemBundle({"leaf", "root"}));
    stream >> std::noskipws;
    X509CertificateChain const chain(stream);
    EXPECT_EQ(namesIn(chain), "leaf -> root");
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.rdbuf()->sgetc(), std::char_traits<char>::eof());
}

TEST(X509CertificateChainStream, IsRefusedIfNotGood)
{
    for (auto const state : {std::ios::failbit, std::ios::badbit, std::ios::eofbit}) {
        std::istringstream stream(pki()["root"].pem());
        stream.setstate(state);
        EXPECT_THROWS_EXACTLY(
            InvalidArgument, "The input certificate chain data stream is invalid.",
            X509CertificateChain(stream));
        EXPECT_EQ(stream.rdbuf()->sgetc(), '-');
    }
}

TEST(X509CertificateChainStream, ReportsExceptionOfBuffer)
{
    BrokenBuffer buffer("the disk is on fire");
    std::istream stream(&buffer);
    EXPECT_THROWS_EXACTLY(
        InvalidArgument,
        "The input X509 certificate chain data stream is invalid. Reason:the disk is on fire",
        X509CertificateChain(stream));
}

TEST(X509CertificateChainAdd, AppendsAnyCertificate)
{
    X509CertificateChain chain = chainOf({"leaf", "root", "leaf"});
    EXPECT_EQ(namesIn(chain), "leaf -> root -> leaf");
    EXPECT_EQ(chain.getNumCertificates(), 3U);
}

TEST(X509CertificateChainAdd, RefusesEmptyCertificateAndKeepsList)
{
    X509CertificateChain chain = chainOf({"leaf"});
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The provided certificate has no content.", chain.addCertificate(X509Certificate()));
    X509Certificate source = certificate("root");
    X509Certificate const target(std::move(source));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        chain.addCertificate(source)); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(namesIn(chain), "leaf");
}

TEST(X509CertificateChainAdd, RestoresUninitializedChain)
{
    X509CertificateChain chain = chainOf({"leaf", "root"});
    X509CertificateChain const target(std::move(chain));
    // NOLINTBEGIN(bugprone-use-after-move): the state is documented
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.", chain.empty());
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The provided certificate has no content.", chain.addCertificate(X509Certificate()));
    chain.addCertificate(certificate("root"));
    EXPECT_EQ(chain.getNumCertificates(), 1U);
    EXPECT_EQ(namesIn(chain), "root");
    // NOLINTEND(bugprone-use-after-move)
}

TEST(X509CertificateChainAdd, AcceptsMemberOfSameChain)
{
    X509CertificateChain chain = chainOf({"leaf", "root"});
    chain.addCertificate(chain.getCertificates().front());
    EXPECT_EQ(namesIn(chain), "leaf -> root -> leaf");
}

TEST(X509CertificateChainGet, ReturnsCopy)
{
    X509CertificateChain const chain = chainOf({"leaf", "root"});
    auto certificates = chain.getCertificates();
    certificates.clear();
    EXPECT_EQ(namesIn(chain), "leaf -> root");
}

TEST(X509CertificateChainPopLeaf, ReturnsFirstCertificateThatIsNotCA)
{
    struct Row
    {
        std::vector<std::string> before;
        std::string leaf;
        std::string after;
    };
    std::vector<Row> const rows = {
        {{"leaf"}, "leaf", ""},
        {{"leaf", "intermediate", "root"}, "leaf", "intermediate -> root"},
        {{"root", "leaf", "intermediate"}, "leaf", "root -> intermediate"},
        {{"root", "intermediate", "leaf"}, "leaf", "root -> intermediate"},
        {{"leaf", "other leaf"}, "leaf", "other leaf"},
        {{"root", "other leaf", "leaf", "other leaf"}, "other leaf", "root -> leaf -> other leaf"},
    };
    for (Row const& row : rows) {
        X509CertificateChain chain = chainOf(row.before);
        EXPECT_EQ(chain.popLeafCertificate().getSubjectCommonName(), row.leaf);
        EXPECT_EQ(namesIn(chain), row.after);
    }
}

TEST(X509CertificateChainPopLeaf, RefusesListOfCAsAndKeepsIt)
{
    X509CertificateChain chain = chainOf({"root", "intermediate"});
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Unable to find a leaf certificate in the given certificate chain",
        chain.popLeafCertificate());
    EXPECT_EQ(namesIn(chain), "root -> intermediate");
    EXPECT_EQ(chain.getNumCertificates(), 2U);
}

TEST(X509CertificateChainOutput, HasEachBlockOnOneLine)
{
    X509CertificateChain const chain = chainOf({"leaf", "root"});
    std::string const expected = "-----BEGIN CERTIFICATE-----\n" + certificate("leaf").getAsString() +
                                 "\n-----END CERTIFICATE-----\n" + "-----BEGIN CERTIFICATE-----\n" +
                                 certificate("root").getAsString() + "\n-----END CERTIFICATE-----\n";
    EXPECT_EQ(chain.getAsString(), expected);
    EXPECT_EQ(X509CertificateChain(chain.getAsString()), chain);
}

TEST(X509CertificateChainOutput, LoadsAgainWithLongCertificates)
{
    auto const big = makeRoot("big", [](CertificateSpec& spec) {
        spec.key = rsaKey(4096);
        spec.setExtension("nsComment", std::string(20000, 'x'));
    });
    X509CertificateChain chain = chainOf({"leaf"});
    chain.addCertificate(X509Certificate(big.der()));
    EXPECT_EQ(X509CertificateChain(chain.getAsString()), chain);
}

TEST(X509CertificateChainOutput, PrintsHeadingAndEachCertificate)
{
    std::string const heading = "Printing certificate chain.\n---------------------------\n";
    std::ostringstream reportOfNone;
    X509CertificateChain().print(reportOfNone);
    EXPECT_EQ(reportOfNone.str(), heading);

    std::ostringstream reports;
    reports << certificate("leaf") << '\n' << certificate("root") << '\n';
    std::ostringstream reportOfTwo;
    std::ostream& same = reportOfTwo << chainOf({"leaf", "root"});
    EXPECT_EQ(&same, &reportOfTwo);
    EXPECT_EQ(reportOfTwo.str(), heading + reports.str());
}

TEST(X509CertificateChainComparison, DependsOnContentAndOrder)
{
    X509CertificateChain const chain = chainOf({"leaf", "root"});
    EXPECT_TRUE(chain == chain);
    EXPECT_TRUE(chain == X509CertificateChain(pki().pemBundle({"leaf", "root"})));
    EXPECT_FALSE(chain != chainOf({"leaf", "root"}));
    EXPECT_TRUE(X509CertificateChain() == X509CertificateChain());
    for (auto const& other :
         {chainOf({"root", "leaf"}), chainOf({"leaf"}), X509CertificateChain(),
          chainOf({"leaf", "intermediate"}), chainOf({"leaf", "root", "root"})}) {
        EXPECT_FALSE(chain == other);
        EXPECT_TRUE(chain != other);
        EXPECT_FALSE(other == chain);
    }
}

TEST(X509CertificateChainComparison, RefusesUninitializedChainOnEitherSide)
{
    X509CertificateChain source = chainOf({"leaf"});
    X509CertificateChain const chain(std::move(source));
    // NOLINTBEGIN(bugprone-use-after-move): the state is documented
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        static_cast<void>(chain == source));
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        static_cast<void>(source != chain));
    // NOLINTEND(bugprone-use-after-move)
}

TEST(X509CertificateChainValue, IsIndependentOfItsCopies)
{
    X509CertificateChain original = chainOf({"leaf"});
    X509CertificateChain copy(original);
    original.addCertificate(certificate("root"));
    EXPECT_EQ(namesIn(copy), "leaf");
    copy.popLeafCertificate();
    EXPECT_EQ(namesIn(original), "leaf -> root");
}

// The implementation class is part of the interface. It moves in another way than its handle.

TEST(X509CertificateChainImplementation, IsCopiedUnderLockOfSource)
{
    std::mutex mutex;
    std::lock_guard<std::mutex> const lock(mutex);
    X509CertificateChainImpl source = implementationOf({"leaf", "root"});
    X509CertificateChainImpl const copy(source, lock);
    EXPECT_EQ(copy.getCertificates(), source.getCertificates());
    source.popLeafCertificate();
    EXPECT_EQ(copy.getNumCertificates(), 2U);
}

TEST(X509CertificateChainImplementation, IsEmptyAfterMove)
{
    X509CertificateChainImpl source = implementationOf({"leaf", "root"});
    X509CertificateChainImpl const target(std::move(source));
    EXPECT_EQ(target.getNumCertificates(), 2U);
    EXPECT_TRUE(source.empty()); // NOLINT(bugprone-use-after-move): the state is documented

    X509CertificateChainImpl right = implementationOf({"root"});
    X509CertificateChainImpl left = implementationOf({"leaf", "leaf"});
    EXPECT_EQ(&(left = std::move(right)), &left);
    EXPECT_EQ(left.getNumCertificates(), 1U);
    EXPECT_TRUE(right.empty()); // NOLINT(bugprone-use-after-move): the state is documented
}

TEST(X509CertificateChainImplementation, KeepsListOnSelfCopyAndLosesItOnSelfMove)
{
    X509CertificateChainImpl implementation = implementationOf({"leaf", "root"});
    auto& same = implementation;
    implementation = static_cast<X509CertificateChainImpl const&>(same);
    EXPECT_EQ(implementation.getNumCertificates(), 2U);
    implementation = std::move(same);
    EXPECT_TRUE(implementation.empty()); // NOLINT(bugprone-use-after-move): the state is documented
}

TEST(X509CertificateChainImplementation, ReplacesListOnCopyAssignment)
{
    X509CertificateChainImpl const source = implementationOf({"root"});
    X509CertificateChainImpl target = implementationOf({"leaf", "root"});
    target = source;
    EXPECT_EQ(target.getCertificates(), source.getCertificates());
}

TEST(X509CertificateChainImplementation, ThrowsIfEmpty)
{
    X509CertificateChainImpl implementation;
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "X509CertificateChain has no content.", implementation.throwIfEmpty());
    // It checks nothing. The handle refuses empty certificates.
    implementation.addCertificate(X509Certificate());
    EXPECT_EQ(implementation.getNumCertificates(), 1U);
    EXPECT_NO_THROW(implementation.throwIfEmpty());
    std::istringstream stream(pki()["root"].pem());
    EXPECT_EQ(X509CertificateChainImpl(stream).getNumCertificates(), 1U);
}
