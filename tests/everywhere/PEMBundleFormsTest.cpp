#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/Handles.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/TemporaryFolder.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "truststore/TrustStoreImpl.hpp"
#ifndef _WIN32
#include "truststore/posix/SystemCertificateAdder.hpp"
#endif

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;

constexpr char const byteOrderMark[] = "\xEF\xBB\xBF";
constexpr char const beginLine[] = "-----BEGIN CERTIFICATE-----\n";
constexpr char const endLine[] = "-----END CERTIFICATE-----\n";
/// OpenSSL reads longer lines in pieces of this length.
constexpr std::size_t longestPiece = 254;

/// One form of a bundle, with the names of the certificates in its sound blocks, in order.
struct BundleForm
{
    std::string name;
    std::string text;
    Names sound;
    std::size_t damagedBlocks = 0;
};

BundleForm soundBundle(std::string name, std::string text, Names sound = {"a", "b"})
{
    return {std::move(name), std::move(text), std::move(sound), 0};
}

std::string pemOf(std::string const& name)
{
    return makeRoot(name).pem();
}

/// A bundle with damage between two sound blocks.
BundleForm damagedBundle(
    std::string name, std::string const& damage, Names sound = {"a", "b"}, std::size_t damagedBlocks = 1)
{
    return {std::move(name), pemOf("a") + damage + pemOf("b"), std::move(sound), damagedBlocks};
}

std::string replaced(std::string text, std::string const& from, std::string const& to)
{
    for (auto position = text.find(from); position != std::string::npos;
         position = text.find(from, position + to.size())) {
        text.replace(position, from.size(), to);
    }
    return text;
}

std::string withLineEnds(std::string const& text, std::string const& end)
{
    return replaced(text, "\n", end);
}

std::string relabelled(std::string const& pem, std::string const& label)
{
    return replaced(pem, " CERTIFICATE-----", " " + label + "-----");
}

std::string base64Of(std::string const& pem)
{
    return replaced(replaced(replaced(pem, beginLine, ""), endLine, ""), "\n", "");
}

/// The block with its base64 in one line, and the END line right behind it in the same line. That is an END
/// line to OpenSSL if it begins a piece.
std::string inOneLine(std::string const& pem)
{
    std::string base64 = base64Of(pem);
    base64.insert(base64.size() - longestPiece, "\n");
    return beginLine + base64 + endLine;
}

std::vector<BundleForm> soundBundles()
{
    std::string const a = pemOf("a");
    std::string const b = pemOf("b");
    std::string const longComment = "# " + std::string(longestPiece - 2, 'x');
    std::string const bareEnd = std::string("-----END \n") + endLine;
    return {
        soundBundle("one after the other", a + b),
        soundBundle("DOS line ends", withLineEnds(a + b, "\r\n")),
        soundBundle("white space at line ends", withLineEnds(a + b, " \t\f\v\r\n")),
        soundBundle("no line end at the end", (a + b).substr(0, (a + b).size() - 1)),
        soundBundle("text around the blocks", "# roots\n\n" + a + "\nsubject=b\n" + b + "\nend\n"),
        soundBundle("a byte order mark at the start", byteOrderMark + a + b),
        soundBundle("a byte order mark and DOS line ends", byteOrderMark + withLineEnds(a + b, "\r\n")),
        soundBundle("a byte order mark before each block", byteOrderMark + a + byteOrderMark + b),
        soundBundle("a byte order mark before the second block", a + byteOrderMark + b),
        soundBundle("a byte order mark alone in a line", std::string(byteOrderMark) + "\n" + a + b),
        soundBundle("a byte order mark before a comment", std::string(byteOrderMark) + "# roots\n" + a + b),
        soundBundle("base64 in one line", beginLine + base64Of(a) + "\n" + endLine + b),
        soundBundle("an END line that begins a piece", inOneLine(a) + b),
        soundBundle("a BEGIN line that begins a piece", longComment + a + longComment + b),
        soundBundle("a bare END line before the END line", replaced(a + b, endLine, bareEnd)),
        soundBundle("two bare END lines", replaced(a, endLine, "-----END \n" + bareEnd) + b),
        soundBundle("an END line without label or blank", replaced(a, endLine, "-----END\n" + bareEnd) + b),
        soundBundle("a blank line after the BEGIN line", replaced(a, "E-----\nM", "E-----\n\nM") + b),
        soundBundle("blanks before base64", replaced(a, "\nM", "\n  M") + b),
        soundBundle("older labels", relabelled(a, "X509 CERTIFICATE") + relabelled(b, "X509 CERTIFICATE")),
        soundBundle("a trusted label", relabelled(a, "TRUSTED CERTIFICATE") + b),
        soundBundle("END lines between blocks", a + endLine + "-----END \n" + endLine + b),
        soundBundle("an unfinished BEGIN line between blocks", a + "-----BEGIN CERTIFICATE\n" + b),
        soundBundle("more behind a BEGIN line", a + "-----BEGIN CERTIFICATE----- and more\n" + b),
        soundBundle("blanks before a BEGIN line", a + " " + beginLine + b),
        soundBundle("a BEGIN line longer than a piece", a + "-----BEGIN " + longComment + "-----\n" + b),
    };
}

std::vector<BundleForm> damagedBundles()
{
    std::string const c = pemOf("c");
    std::size_t const middle = c.size() / 2;
    std::string const noEnd = replaced(c, endLine, "");
    std::string const garbage = std::string(beginLine) + "AQID\n" + endLine;
    std::string badBase64 = c;
    badBase64[middle] = '*';
    return {
        damagedBundle("bad base64", badBase64),
        damagedBundle("no certificate", garbage),
        damagedBundle("no content", std::string(beginLine) + endLine),
        damagedBundle("no END line", noEnd),
        damagedBundle("no END line and DOS line ends", withLineEnds(noEnd, "\r\n")),
        damagedBundle("no END line and a byte order mark", byteOrderMark + noEnd),
        damagedBundle("no END line before a byte order mark", noEnd + byteOrderMark + c, {"a", "c", "b"}),
        damagedBundle("half a block that swallows the next BEGIN line", c.substr(0, middle), {"a"}),
        damagedBundle("half a block and a line end", c.substr(0, middle) + "\n"),
        damagedBundle("a bare END line instead of the END line", noEnd + "-----END \n"),
        damagedBundle("an END line of another kind", noEnd + "-----END NOVELTY-----\n"),
        damagedBundle("a BEGIN line within a block", beginLine + c, {"a", "c", "b"}),
        damagedBundle("damage before and after a sound block", noEnd + c + garbage, {"a", "c", "b"}, 2),
        damagedBundle("damage among byte order marks", byteOrderMark + garbage + byteOrderMark),
        damagedBundle("bad base64 and a bare END line", replaced(badBase64, endLine, "-----END \n")),
    };
}

/// Blocks at whose line ends bytes above 127 follow. OpenSSL drops those where `char` is signed.
std::vector<BundleForm> bundlesWithHighBytes()
{
    std::string const a = pemOf("a");
    std::string const b = pemOf("b");
    return {
        soundBundle("a letter behind each line", withLineEnds(a + b, "\xC3\xA4\n")),
        soundBundle("a blank of Latin 1 behind each line", withLineEnds(a + b, "\xA0\r\n")),
        soundBundle("bytes and white space in turn", withLineEnds(a + b, " \x80\t\xFF \n")),
        soundBundle(
            "a letter behind a BEGIN line",
            replaced(a + b, beginLine, "-----BEGIN CERTIFICATE-----\xC3\xA4\n")),
        soundBundle(
            "a letter behind an END line", replaced(a + b, endLine, "-----END CERTIFICATE-----\xC3\xA4\n")),
        soundBundle(
            "a letter behind a piece of a line",
            inOneLine(replaced(a, endLine, "-----END CERTIFICATE-----\x80\n")) + b),
        soundBundle("a byte order mark and letters", byteOrderMark + withLineEnds(a + b, "\xC3\xA4\n")),
    };
}

Names namesIn(X509CertificateChain const& chain)
{
    Names names;
    for (X509Certificate const& member : chain.getCertificates()) {
        names.push_back(member.getSubjectCommonName());
    }
    return names;
}

/// Why a chain refuses the text: the oldest reason in OpenSSL's queue. If OpenSSL reads certificates without
/// a complaint, the reason is a missing END line.
std::string reasonToRefuse(std::string const& text)
{
    CleanErrorQueue const clean;
    auto const bio = own(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    STACK_OF(X509_INFO)* const entries = PEM_X509_INFO_read_bio(bio.get(), nullptr, nullptr, nullptr);
    bool const hasRead = sk_X509_INFO_num(entries) > 0;
    sk_X509_INFO_pop_free(entries, X509_INFO_free);
    return queueIsEmpty() && hasRead ? reasonText(ERR_LIB_PEM, PEM_R_BAD_END_LINE) : oldestReasonText();
}

#ifndef _WIN32
Names namesIn(STACK_OF(X509) const* certificates)
{
    Names names;
    for (int index = 0; index < sk_X509_num(certificates); ++index) {
        names.push_back(commonNameOf(sk_X509_value(certificates, index)));
    }
    return names;
}

Names sorted(Names names)
{
    std::sort(names.begin(), names.end());
    return names;
}

/// What OpenSSL alone reads from the file into a store.
Names namesThatOpenSSLReads(fs::path const& file)
{
    ErrorQueueMark const mark;
    auto const store = own(X509_STORE_new());
    X509_STORE_load_file(store.get(), file.string().c_str());
    STACK_OF(X509)* const certificates = X509_STORE_get1_all_certs(store.get());
    auto names = sorted(namesIn(certificates));
    sk_X509_pop_free(certificates, X509_free);
    return names;
}

/// What the adder delivers from the file, before any filter.
Names namesThatAdderDelivers(fs::path const& file, bool rethrowOnFailure)
{
    posix::SystemCertificateAdder adder({{file.string()}, {}});
    TrustStoreImpl store;
    adder.addCertificatesTo(store, TrustStore::Usage::ServerAuthentication, rethrowOnFailure);
    Names names;
    for (unsigned index = 0; index < store.size(); ++index) {
        names.push_back(commonNameOf(store.x509At(index)));
    }
    return sorted(names);
}
#endif

} // namespace

TEST(PEMBundle, ChainReadsSoundBlocksInOrder)
{
    for (auto const& forms : {soundBundles(), bundlesWithHighBytes()}) {
        for (BundleForm const& form : forms) {
            SCOPED_TRACE(form.name);
            EXPECT_EQ(namesIn(X509CertificateChain(form.text)), form.sound);
        }
    }
}

TEST(PEMBundle, CertificateMayHaveHighBytesAtLineEnds)
{
    for (BundleForm const& form : bundlesWithHighBytes()) {
        SCOPED_TRACE(form.name);
        EXPECT_EQ(X509Certificate(form.text).getSubjectCommonName(), form.sound.front());
    }
}

TEST(PEMBundle, SignedDataMayHaveHighBytesAtLineEnds)
{
    auto const text = toPem(makeSignedData("content", makeRoot("a")));
    for (auto const* const lineEnd : {"\xC3\xA4\n", "\xA0\r\n", " \x80\t\xFF \n"}) {
        SCOPED_TRACE(lineEnd);
        EXPECT_EQ(PKCS7Certificate(withLineEnds(text, lineEnd)).getCertificates().size(), 1U);
    }
}

TEST(PEMBundle, ChainRefusesDamagedBlockAmongSoundOnes)
{
    for (BundleForm const& form : damagedBundles()) {
        SCOPED_TRACE(form.name);
        EXPECT_THROWS_EXACTLY(
            X509CertificateChainException,
            "Error: Loading a certificate chain failed. Reason=" + reasonToRefuse(form.text),
            X509CertificateChain(form.text));
    }
}

#ifndef _WIN32
TEST(PEMBundle, AdderDeliversWhatOpenSSLReadsFromSoundBundle)
{
    for (BundleForm const& form : soundBundles()) {
        SCOPED_TRACE(form.name);
        TemporaryFolder const folder;
        auto const file = folder.write("bundle.pem", form.text);
        EXPECT_EQ(namesThatOpenSSLReads(file), sorted(form.sound));
        EXPECT_EQ(namesThatAdderDelivers(file, true), sorted(form.sound));
    }
}

TEST(PEMBundle, AdderDropsHighBytesAtLineEnds)
{
    for (BundleForm const& form : bundlesWithHighBytes()) {
        SCOPED_TRACE(form.name);
        TemporaryFolder const folder;
        auto const file = folder.write("bundle.pem", form.text);
        if (CHAR_MIN < 0) {
            EXPECT_EQ(namesThatOpenSSLReads(file), sorted(form.sound));
        }
        EXPECT_EQ(namesThatAdderDelivers(file, true), sorted(form.sound));
    }
}

TEST(PEMBundle, AdderDeliversEverySoundBlockOfDamagedBundle)
{
    for (BundleForm const& form : damagedBundles()) {
        SCOPED_TRACE(form.name);
        TemporaryFolder const folder;
        auto const file = folder.write("bundle.pem", form.text);
        LogCapture const log;
        EXPECT_EQ(namesThatAdderDelivers(file, false), sorted(form.sound));
        EXPECT_EQ(log.records().size(), form.damagedBlocks);
    }
}

TEST(PEMBundle, AdderDeliversBlockWithByteOrderMarkWhereOpenSSLDoesNotLookForOne)
{
    TemporaryFolder const folder;
    auto const file = folder.write("bundle.pem", pemOf("a") + "\n" + byteOrderMark + pemOf("b"));
    EXPECT_EQ(namesThatOpenSSLReads(file), Names{"a"});
    EXPECT_EQ(namesThatAdderDelivers(file, true), (Names{"a", "b"}));
}
#endif
