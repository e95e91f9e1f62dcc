#include "Comparison.hpp"
#include "Material.hpp"

#include "support/operations/OperationTable.hpp"

#include <openssl/core_names.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <unordered_map>

namespace foundation::benchmarks {

namespace {

constexpr double loadTarget = 1.6;
constexpr double queryTarget = 1.5;
constexpr double outputTarget = 1.3;
constexpr double derTarget = 1.0;
constexpr double chainTarget = 1.1;
constexpr double equalityTarget = 1.1;
constexpr double keyRecordTarget = 4;

std::string textOf(BIO* bio)
{
    char* data = nullptr;
    long const length = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(length));
}

std::string bareName(X509_NAME const* name)
{
    auto const bio = makeBIO(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253);
    return textOf(bio.get());
}

std::string bareUTF8(X509_NAME_ENTRY const* entry)
{
    unsigned char* buffer = nullptr;
    int const length = ASN1_STRING_to_UTF8(&buffer, X509_NAME_ENTRY_get_data(entry));
    auto const owned = makeOpenSSLBytes(buffer);
    return std::string(buffer, buffer + length);
}

std::unordered_map<std::string, std::string> bareRDNs(X509_NAME const* name)
{
    std::unordered_map<std::string, std::string> attributes;
    for (int index = 0; index < X509_NAME_entry_count(name); ++index) {
        auto const* entry = X509_NAME_get_entry(name, index);
        attributes[OBJ_nid2sn(OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry)))] = bareUTF8(entry);
    }
    return attributes;
}

std::string bareCommonName(X509_NAME const* name)
{
    int last = -1;
    int next = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
    while (next >= 0) {
        last = next;
        next = X509_NAME_get_index_by_NID(name, NID_commonName, last);
    }
    return bareUTF8(X509_NAME_get_entry(name, last));
}

std::string bareSerial(X509* certificate)
{
    auto const number = makeBIGNUM(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
    auto const digits = makeOpenSSLChars(BN_bn2dec(number.get()));
    return digits.get();
}

std::string bareFingerprint(X509* certificate)
{
    std::array<unsigned char, 32> digest{};
    X509_digest(certificate, EVP_sha256(), digest.data(), nullptr);
    std::string text(64, '\0');
    for (std::size_t index = 0; index < digest.size(); ++index) {
        text[2 * index] = "0123456789abcdef"[digest[index] >> 4U];
        text[2 * index + 1] = "0123456789abcdef"[digest[index] & 15U];
    }
    return text;
}

std::string bareTime(ASN1_TIME const* time)
{
    auto const bio = makeBIO(BIO_new(BIO_s_mem()));
    ASN1_TIME_print(bio.get(), time);
    return textOf(bio.get());
}

std::time_t bareTimePoint(ASN1_TIME const* time)
{
    std::tm parts{};
    ASN1_TIME_to_tm(time, &parts);
    return timegm(&parts);
}

std::string bareOID(ASN1_OBJECT const* object)
{
    std::array<char, 80> text{};
    OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    return text.data();
}

std::vector<std::string> bareExtendedKeyUsages(X509* certificate)
{
    auto const usages = makeASN1_OBJECTStack(static_cast<STACK_OF(ASN1_OBJECT)*>(
        X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
    std::vector<std::string> oids;
    for (int index = 0; index < sk_ASN1_OBJECT_num(usages.get()); ++index) {
        oids.push_back(bareOID(sk_ASN1_OBJECT_value(usages.get(), index)));
    }
    return oids;
}

std::vector<std::string> barePolicies(X509* certificate)
{
    auto const policies = makePOLICYINFOStack(static_cast<STACK_OF(POLICYINFO)*>(
        X509_get_ext_d2i(certificate, NID_certificate_policies, nullptr, nullptr)));
    std::vector<std::string> oids;
    for (int index = 0; index < sk_POLICYINFO_num(policies.get()); ++index) {
        oids.push_back(bareOID(sk_POLICYINFO_value(policies.get(), index)->policyid));
    }
    return oids;
}

bool bareIsForSigning(X509* certificate)
{
    auto const usage = makeASN1_BIT_STRING(
        static_cast<ASN1_BIT_STRING*>(X509_get_ext_d2i(certificate, NID_key_usage, nullptr, nullptr)));
    if (usage == nullptr || ASN1_BIT_STRING_get_bit(usage.get(), 0) == 0) {
        return false;
    }
    auto const usages = makeASN1_OBJECTStack(static_cast<STACK_OF(ASN1_OBJECT)*>(
        X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
    for (int index = 0; index < sk_ASN1_OBJECT_num(usages.get()); ++index) {
        if (OBJ_obj2nid(sk_ASN1_OBJECT_value(usages.get(), index)) == NID_code_sign) {
            return true;
        }
    }
    return usages == nullptr;
}

ByteArray bytesOf(BIGNUM const* number)
{
    ByteArray bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

ByteArray bareRSANumber(X509* certificate, char const* name)
{
    BIGNUM* read = nullptr;
    EVP_PKEY_get_bn_param(X509_get0_pubkey(certificate), name, &read);
    auto const number = makeBIGNUM(read);
    return bytesOf(number.get());
}

ByteArray barePoint(X509* certificate)
{
    std::array<unsigned char, 256> point{};
    std::size_t length = 0;
    EVP_PKEY_get_octet_string_param(
        X509_get0_pubkey(certificate), OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(), &length);
    return ByteArray(point.data(), point.data() + length);
}

struct BareKey
{
    int bits;
    ByteArray exponent;
    ByteArray modulus;
};

/// Reads both numbers by one call. OpenSSL fills the whole buffers, in the processor's order of bytes.
BareKey bareRSAKey(X509* certificate)
{
    auto const* const key = X509_get0_pubkey(certificate);
    ByteArray modulus(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    ByteArray exponent(sizeof(std::uint64_t)); // no public exponent in use is longer
    std::array<OSSL_PARAM, 3> parameters{
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_N, modulus.data(), modulus.size()),
        OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_E, exponent.data(), exponent.size()),
        OSSL_PARAM_construct_end()};
    EVP_PKEY_get_params(key, parameters.data());
    while (exponent.size() > 1 && exponent.back() == 0) {
        exponent.pop_back();
    }
    std::reverse(modulus.begin(), modulus.end());
    std::reverse(exponent.begin(), exponent.end());
    return {EVP_PKEY_get_bits(key), std::move(exponent), std::move(modulus)};
}

ByteArray bareDER(X509* certificate)
{
    ByteArray der(static_cast<std::size_t>(i2d_X509(certificate, nullptr)));
    unsigned char* position = der.data();
    i2d_X509(certificate, &position);
    return der;
}

std::string bareBase64(X509* certificate)
{
    ByteArray const der = bareDER(certificate);
    std::string text((der.size() + 2) / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), der.data(), static_cast<int>(der.size()));
    text.pop_back();
    return text;
}

std::string barePEM(X509* certificate)
{
    auto const bio = makeBIO(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(bio.get(), certificate);
    return textOf(bio.get());
}

std::string bareReport(X509* certificate)
{
    std::ostringstream out;
    std::string const subject = bareName(X509_get_subject_name(certificate));
    std::string const issuer = bareName(X509_get_issuer_name(certificate));
    out << "Certificate Details:\n--------------------\nSubject Name: " << subject
        << ";\nIssuer Name: " << issuer << ";\nSHA256 Fingerprint: " << bareFingerprint(certificate)
        << ";\nisSelfSigned: " << (issuer == subject ? "1" : "0")
        << ";\nisCA: " << (X509_check_ca(certificate) > 0 ? "1" : "0") << ";\n\n";
    return out.str();
}

void addLoadsOf(std::string const& keyName, KeyKind kind)
{
    ByteArray const der = typicalLeaf(kind).der();
    std::string const pem = typicalLeaf(kind).pem();
    auto const& loaded = compare(
        "DER, " + keyName, loadTarget, [der] { return X509Certificate(der); },
        [der] {
            unsigned char const* position = der.data();
            auto certificate = makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
            return hasFitKey(certificate.get()) ? std::move(certificate) : makeX509(nullptr);
        });
    noteMemory("certificate, " + keyName, Quantity::Kept, loaded);
    compare(
        "PEM, " + keyName, loadTarget, [pem] { return X509Certificate(pem); },
        [pem] {
            auto const bio = makeBIO(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
            auto certificate = makeX509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
            return hasFitKey(certificate.get()) ? std::move(certificate) : makeX509(nullptr);
        });
}

X509_INFOStackUPtr bareBlocks(std::string const& bundle)
{
    auto const bio = makeBIO(BIO_new_mem_buf(bundle.data(), static_cast<int>(bundle.size())));
    auto blocks = makeX509_INFOStack(PEM_X509_INFO_read_bio(bio.get(), nullptr, nullptr, nullptr));
    bool fit = true;
    for (int index = 0; index < sk_X509_INFO_num(blocks.get()); ++index) {
        fit = hasFitKey(sk_X509_INFO_value(blocks.get(), index)->x509) && fit;
    }
    return fit ? std::move(blocks) : makeX509_INFOStack(nullptr);
}

void addLoads()
{
    beginGroup(
        "Load",
        "Decoding the public key takes most of OpenSSL's parse time. The library adds the\n"
        "search for the PEM marker, and the reading of the key's numbers and of the extensions. The chain\n"
        "has the operating system's roots, read from one PEM text.");
    addLoadsOf("RSA-2048", KeyKind::RSA2048);
    addLoadsOf("P-256", KeyKind::P256);
    addLoadsOf("Ed25519", KeyKind::Ed25519);
    std::string const bundle = systemBundle();
    compare(
        "chain of the system's roots", chainTarget, [bundle] { return X509CertificateChain(bundle); },
        [bundle] { return bareBlocks(bundle); });
}

/// The functions that are compared, as the table of operations names them.
std::set<std::string>& comparedFunctions()
{
    static std::set<std::string> functions{
        "X509Certificate::operator==", "X509Certificate::operator<<",
        "X509Certificate::X509Certificate, copy"};
    return functions;
}

/// Name and address of a query.
#define FOUNDATION_BENCHMARK_QUERY(name) "X509Certificate::" #name, &X509Certificate::name

/// Compares a query of the library with a function of OpenSSL's certificate.
template <typename Query, typename Bare>
void addQuery(
    std::string const& name, std::optional<double> target, char const* function, Query query, Bare bare,
    KeyKind kind = KeyKind::RSA2048)
{
    comparedFunctions().insert(function);
    auto const certificate = load(typicalLeaf(kind));
    auto const x509 = typicalLeaf(kind).certificate;
    compare(
        name, target, [certificate, query] { return (certificate.*query)(); },
        [x509, bare] { return bare(x509.get()); });
}

void addTextQueries()
{
    beginGroup(
        "Queries that return text",
        "OpenSSL's side also returns a `std::string`, or a vector or map of them. The name of the signature\n"
        "algorithm is a lookup of some nanoseconds. The cost of the handle's lock is visible there. The row\n"
        "below includes a lock in OpenSSL's time.");
    addQuery("subject", queryTarget, FOUNDATION_BENCHMARK_QUERY(getSubjectName), [](X509* x) {
        return bareName(X509_get_subject_name(x));
    });
    addQuery("issuer", queryTarget, FOUNDATION_BENCHMARK_QUERY(getIssuerName), [](X509* x) {
        return bareName(X509_get_issuer_name(x));
    });
    addQuery(
        "subject as attributes", queryTarget, FOUNDATION_BENCHMARK_QUERY(getSubjectNameAsRDNs),
        [](X509* x) { return bareRDNs(X509_get_subject_name(x)); });
    addQuery(
        "issuer as attributes", queryTarget, FOUNDATION_BENCHMARK_QUERY(getIssuerNameAsRDNs),
        [](X509* x) { return bareRDNs(X509_get_issuer_name(x)); });
    addQuery(
        "subject's common name", queryTarget, FOUNDATION_BENCHMARK_QUERY(getSubjectCommonName),
        [](X509* x) { return bareCommonName(X509_get_subject_name(x)); });
    addQuery(
        "issuer's common name", queryTarget, FOUNDATION_BENCHMARK_QUERY(getIssuerCommonName),
        [](X509* x) { return bareCommonName(X509_get_issuer_name(x)); });
    addQuery("serial number", queryTarget, FOUNDATION_BENCHMARK_QUERY(getSerialNumber), bareSerial);
    addQuery("fingerprint", queryTarget, FOUNDATION_BENCHMARK_QUERY(getSHA256Fingerprint), bareFingerprint);
    addQuery(
        "signature algorithm", queryTarget, FOUNDATION_BENCHMARK_QUERY(getSignatureAlgorithm),
        [](X509* x) { return std::string(OBJ_nid2sn(X509_get_signature_nid(x))); });
    auto const mutex = std::make_shared<std::mutex>();
    addQuery(
        "signature algorithm, lock too", std::nullopt, FOUNDATION_BENCHMARK_QUERY(getSignatureAlgorithm),
        [mutex](X509* x) {
            std::lock_guard<std::mutex> const lock(*mutex);
            return std::string(OBJ_nid2sn(X509_get_signature_nid(x)));
        });
    addQuery("not before", queryTarget, FOUNDATION_BENCHMARK_QUERY(getValidNotBefore), [](X509* x) {
        return bareTime(X509_get0_notBefore(x));
    });
    addQuery("not after", queryTarget, FOUNDATION_BENCHMARK_QUERY(getValidNotAfter), [](X509* x) {
        return bareTime(X509_get0_notAfter(x));
    });
    addQuery(
        "extended key usages", queryTarget, FOUNDATION_BENCHMARK_QUERY(getExtendedKeyUsages),
        bareExtendedKeyUsages);
    addQuery("policies", queryTarget, FOUNDATION_BENCHMARK_QUERY(getPolicies), barePolicies);
}

void addOtherQueries()
{
    beginGroup(
        "Other queries, equality, copy",
        "Where OpenSSL takes some nanoseconds, the cost of the handle's lock and of the key's reference\n"
        "count is visible. A time point is the difference to the epoch by `ASN1_TIME_diff`, compared with\n"
        "`timegm`. The self-signed query compares the printed names. A copy is a handle with a lock, "
        "compared\n"
        "with one reference.\n"
        "\n"
        "OpenSSL's side of the key record reads both RSA numbers by one `EVP_PKEY_get_params`, and the "
        "bytes\n"
        "of other public keys. For RSA and P-256 the library calls `EVP_PKEY_todata`, which exports the\n"
        "whole key: for P-256 also the parameters of the curve. Equality compares whole encodings.\n"
        "`X509_cmp` compares SHA-1 digests that OpenSSL computed earlier, and the signed parts as they were\n"
        "read. It encodes nothing, so it takes some nanoseconds, and the locks of both handles are visible.");
    addQuery(
        "not before as time point", std::nullopt, FOUNDATION_BENCHMARK_QUERY(getValidNotBeforeTimePoint),
        [](X509* x) { return bareTimePoint(X509_get0_notBefore(x)); });
    addQuery(
        "not after as time point", std::nullopt, FOUNDATION_BENCHMARK_QUERY(getValidNotAfterTimePoint),
        [](X509* x) { return bareTimePoint(X509_get0_notAfter(x)); });
    addQuery("is CA", std::nullopt, FOUNDATION_BENCHMARK_QUERY(isCACertificate), [](X509* x) {
        return X509_check_ca(x) > 0;
    });
    addQuery("is self-signed", std::nullopt, FOUNDATION_BENCHMARK_QUERY(isSelfSigned), [](X509* x) {
        return bareName(X509_get_issuer_name(x)) == bareName(X509_get_subject_name(x));
    });
    addQuery(
        "is valid for signing", std::nullopt, FOUNDATION_BENCHMARK_QUERY(isValidForDigitalSigning),
        bareIsForSigning);
    addQuery("key size", std::nullopt, FOUNDATION_BENCHMARK_QUERY(getKeySize), [](X509* x) {
        return EVP_PKEY_get_bits(X509_get0_pubkey(x));
    });
    addQuery("modulus", std::nullopt, FOUNDATION_BENCHMARK_QUERY(getModulus), [](X509* x) {
        return bareRSANumber(x, OSSL_PKEY_PARAM_RSA_N);
    });
    addQuery("public exponent", std::nullopt, FOUNDATION_BENCHMARK_QUERY(getPublicExponent), [](X509* x) {
        return bareRSANumber(x, OSSL_PKEY_PARAM_RSA_E);
    });
    addQuery(
        "key record, RSA-2048", keyRecordTarget, FOUNDATION_BENCHMARK_QUERY(getPublicKeyInfo), bareRSAKey);
    addQuery(
        "key record, P-256", keyRecordTarget, FOUNDATION_BENCHMARK_QUERY(getPublicKeyInfo), barePoint,
        KeyKind::P256);
    addQuery(
        "key record, Ed25519", keyRecordTarget, FOUNDATION_BENCHMARK_QUERY(getPublicKeyInfo), barePoint,
        KeyKind::Ed25519);

    auto const one = load(typicalLeaf(KeyKind::RSA2048));
    auto const other = load(typicalLeaf(KeyKind::RSA2048));
    auto const bareOne = typicalLeaf(KeyKind::RSA2048).certificate;
    auto const bareOther = test::own(X509_dup(bareOne.get()));
    auto const areEqual = [one, other] { return one == other; };
    compare("equality, by `i2d_X509`", equalityTarget, areEqual, [bareOne, bareOther] {
        return bareDER(bareOne.get()) == bareDER(bareOther.get());
    });
    compare("equality, by `X509_cmp`", std::nullopt, areEqual, [bareOne, bareOther] {
        return X509_cmp(bareOne.get(), bareOther.get()) == 0;
    });
    compare(
        "copy", std::nullopt, [one] { return X509Certificate(one); },
        [bareOne] {
            X509_up_ref(bareOne.get());
            return makeX509(bareOne.get());
        });
}

void addOutput()
{
    beginGroup(
        "Output",
        "Compared with `i2d_X509`, `EVP_EncodeBlock`, `PEM_write_bio_X509`, and a report written by hand.\n"
        "OpenSSL's side calls `i2d_X509` twice: for the length, and to write into an array of that length.");
    addQuery("DER", derTarget, FOUNDATION_BENCHMARK_QUERY(getAsBytes), bareDER);
    addQuery("base64", outputTarget, FOUNDATION_BENCHMARK_QUERY(getAsString), bareBase64);
    addQuery("PEM", outputTarget, FOUNDATION_BENCHMARK_QUERY(getAsPEMString), barePEM);
    auto const certificate = load(typicalLeaf(KeyKind::RSA2048));
    auto const x509 = typicalLeaf(KeyKind::RSA2048).certificate;
    compare(
        "report", outputTarget,
        [certificate] {
            std::ostringstream out;
            out << certificate;
            return out.str();
        },
        [x509] { return bareReport(x509.get()); });
}

/// Measures every query of the table of operations that has no row of its own above.
void addQueriesWithoutCounterpart()
{
    beginGroup(
        "Queries without a counterpart",
        "Here the OpenSSL column shows an empty function. A new query appears "
        "in this group until it is\ncompared with OpenSSL.");
    for (auto const& operation : test::operationsWithoutOthers(test::certificateOperations())) {
        if (comparedFunctions().count(operation.name) != 0) {
            continue;
        }
        auto const certificate = std::make_shared<X509Certificate>(load(typicalLeaf(KeyKind::RSA2048)));
        compare(
            operation.name, std::nullopt,
            [certificate, operation] {
                auto call = operation.makeCall();
                call->run(*certificate, test::sharedObjects());
                return call;
            },
            [] { return 0; });
    }
}

} // namespace

void addCertificateBenchmarks()
{
    addLoads();
    addTextQueries();
    addOtherQueries();
    addOutput();
    addQueriesWithoutCounterpart();
}

} // namespace foundation::benchmarks
