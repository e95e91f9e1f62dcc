#include "VerdictWords.hpp"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <iterator>

namespace foundation::toolkit {

using foundation::certificates::CertificateChainStatus;

namespace {

struct CodeWords
{
    int code = X509_V_OK;
    Words words;
};

constexpr std::string_view readCertificate =
    "openssl x509 -in FILE -noout -text shows the certificate's fields and extensions.";
constexpr std::string_view readChain =
    "Print the chain: the issuer of each certificate has to be the subject of the next one.";
constexpr std::string_view readDates =
    "openssl x509 -in FILE -noout -dates shows the dates. Compare them with the clock.";
constexpr std::string_view readCRL =
    "openssl crl -in FILE -noout -text shows the CRL's issuer, dates and extensions.";
constexpr std::string_view readNames = "openssl x509 -in FILE -noout -ext subjectAltName shows the names.";
constexpr std::string_view readLimits =
    "openssl x509 -in FILE -noout -ext nameConstraints shows the limits of each CA.";
constexpr std::string_view readFingerprint =
    "Compare the root's fingerprint with one that you received in another way.";
constexpr std::string_view verifySignature =
    "openssl verify -partial_chain -trusted ISSUER FILE verifies the signature alone.";

// docs/errors.md shows this table. A test compares them.
constexpr CodeWords table[] = {
    {X509_V_OK, {"The certificate is valid.", "There is nothing to check.", "Nothing has to be done."}},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT,
     {"The chain ends before it reaches a root.", readChain,
      "Add the root of the chain to the trust store, or allow trusted intermediates."}},
    {X509_V_ERR_UNABLE_TO_GET_CRL,
     {"No CRL of the certificate's issuer is available.", readCRL, "Provide a current CRL of the issuer."}},
    {X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE,
     {"The signature of the certificate cannot be decrypted.", verifySignature,
      "Get the certificate again from its issuer: it is damaged."}},
    {X509_V_ERR_UNABLE_TO_DECRYPT_CRL_SIGNATURE,
     {"The signature of the CRL cannot be decrypted.", readCRL,
      "Get the CRL again from its issuer: it is damaged."}},
    {X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY,
     {"The public key of the issuer cannot be read.", readCertificate,
      "Ask the issuer for a CA certificate with a key that OpenSSL supports."}},
    {X509_V_ERR_CERT_SIGNATURE_FAILURE,
     {"The signature of the certificate is wrong: it was changed, or another key signed it.", verifySignature,
      "Get the certificate and its intermediates again from the issuer."}},
    {X509_V_ERR_CRL_SIGNATURE_FAILURE,
     {"The signature of the CRL is wrong: it was changed, or another key signed it.", readCRL,
      "Get the CRL again from the certificate's issuer."}},
    {X509_V_ERR_CERT_NOT_YET_VALID,
     {"The certificate is not valid yet.", readDates,
      "Check the clock of this system, or wait until the certificate is valid."}},
    {X509_V_ERR_CERT_HAS_EXPIRED,
     {"The certificate has expired.", readDates,
      "Renew the certificate, and check the clock of this system."}},
    {X509_V_ERR_CRL_NOT_YET_VALID,
     {"The CRL is not valid yet.", readCRL, "Check the clock of this system, or get the current CRL."}},
    {X509_V_ERR_CRL_HAS_EXPIRED, {"The CRL has expired.", readCRL, "Get the current CRL from the issuer."}},
    {X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD,
     {"The start of the certificate's validity cannot be read.", readDates,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD,
     {"The end of the certificate's validity cannot be read.", readDates,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_ERROR_IN_CRL_LAST_UPDATE_FIELD,
     {"The date of the CRL cannot be read.", readCRL, "Ask the issuer for a correct CRL."}},
    {X509_V_ERR_ERROR_IN_CRL_NEXT_UPDATE_FIELD,
     {"The date of the CRL's next update cannot be read.", readCRL, "Ask the issuer for a correct CRL."}},
    {X509_V_ERR_OUT_OF_MEM,
     {"OpenSSL ran out of memory.", lookAtMemory, "Validate again when more memory is available."}},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT,
     {"The certificate signed itself, and it is not trusted.", readFingerprint,
      "Add it to the trust store if you know its origin, or use a certificate from a trusted CA."}},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN,
     {"The chain ends at a root that is not trusted.", readFingerprint,
      "Add the root to the trust store if you trust it, or use a certificate from a trusted CA."}},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
     {"The certificate's issuer was not found.", readChain,
      "Add the missing intermediate certificates to the chain: a server must send them."}},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE,
     {"The certificate came without its issuer, so its signature cannot be checked.", readChain,
      "Add the missing intermediate certificates to the chain: a server must send them."}},
    {X509_V_ERR_CERT_CHAIN_TOO_LONG,
     {"The chain has too many certificates.", readChain, "Use a certificate with a shorter chain."}},
    {X509_V_ERR_CERT_REVOKED,
     {"The issuer has revoked the certificate.", readCRL,
      "Stop using the certificate and its key, and get new ones."}},
    {X509_V_ERR_NO_ISSUER_PUBLIC_KEY,
     {"The issuer's certificate has no public key.", readCertificate,
      "Ask the issuer for a correct CA certificate."}},
    {X509_V_ERR_PATH_LENGTH_EXCEEDED,
     {"The chain has more CAs than one of them allows below itself.", readChain,
      "Ask the issuer for a certificate with a correct chain."}},
    {X509_V_ERR_INVALID_PURPOSE,
     {"The certificate is not allowed for this purpose.", readCertificate,
      "Use a certificate whose key usages allow the purpose, and check that the right purpose was asked "
      "for."}},
    {X509_V_ERR_CERT_UNTRUSTED,
     {"The root is not trusted for this purpose.", readFingerprint,
      "Use a root that is trusted for the purpose."}},
    {X509_V_ERR_CERT_REJECTED,
     {"The root is marked as rejected for this purpose.", readFingerprint,
      "Use a certificate from a trusted CA."}},
    {X509_V_ERR_KEYUSAGE_NO_CERTSIGN,
     {"The issuer's certificate is not allowed to sign certificates.", readCertificate,
      "Use the issuer's CA certificate in the chain, or ask for a certificate from a real CA."}},
    {X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER,
     {"The issuer of the CRL was not found.", readCRL, "Provide a CRL of the certificate's own issuer."}},
    {X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION,
     {"The certificate has a critical extension that OpenSSL does not know.", readCertificate,
      "Ask the issuer for a certificate without that extension."}},
    {X509_V_ERR_KEYUSAGE_NO_CRL_SIGN,
     {"The issuer's certificate is not allowed to sign CRLs.", readCertificate,
      "Ask the issuer for a CA certificate with the key usage cRLSign."}},
    {X509_V_ERR_UNHANDLED_CRITICAL_CRL_EXTENSION,
     {"The CRL has a critical extension that OpenSSL does not know.", readCRL,
      "Ask the issuer for a CRL without that extension."}},
    {X509_V_ERR_INVALID_NON_CA,
     {"A CA certificate is used where an end-entity certificate is needed.", readCertificate,
      "Use an end-entity certificate for this purpose."}},
    {X509_V_ERR_PROXY_PATH_LENGTH_EXCEEDED,
     {"The chain has more proxy certificates than allowed.", readChain,
      "Use an end-entity certificate instead of a proxy certificate."}},
    {X509_V_ERR_PROXY_CERTIFICATES_NOT_ALLOWED,
     {"The chain contains a proxy certificate.", readChain,
      "Use an end-entity certificate instead of a proxy certificate."}},
    {X509_V_ERR_INVALID_EXTENSION,
     {"An extension of the certificate cannot be read or contradicts another one.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_INVALID_POLICY_EXTENSION,
     {"A policy extension of the certificate cannot be read or contradicts another one.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_NO_EXPLICIT_POLICY,
     {"The chain has no policy that all its certificates share.", readCertificate,
      "Ask the issuer for a certificate with a policy of its CA."}},
    {X509_V_ERR_DIFFERENT_CRL_SCOPE,
     {"The CRL does not cover this certificate.", readCRL, "Provide the CRL that the certificate names."}},
    {X509_V_ERR_UNSUPPORTED_EXTENSION_FEATURE,
     {"The certificate or the CRL uses a feature that OpenSSL does not support.", readCertificate,
      "Ask the issuer for one without that feature."}},
    {X509_V_ERR_PERMITTED_VIOLATION,
     {"The CA is not allowed to issue certificates for this name.", readLimits,
      "Use a certificate from a CA that is allowed to issue for the name."}},
    {X509_V_ERR_EXCLUDED_VIOLATION,
     {"The CA is forbidden to issue certificates for this name.", readLimits,
      "Use a certificate from a CA that is allowed to issue for the name."}},
    {X509_V_ERR_SUBTREE_MINMAX,
     {"A CA limits names in a way that OpenSSL does not support.", readLimits,
      "Use a certificate from another CA."}},
    {X509_V_ERR_UNSUPPORTED_CONSTRAINT_TYPE,
     {"A CA limits a kind of name that OpenSSL does not check.", readLimits,
      "Use a certificate from another CA."}},
    {X509_V_ERR_UNSUPPORTED_CONSTRAINT_SYNTAX,
     {"A CA's limit on names has an invalid form.", readLimits, "Use a certificate from another CA."}},
    {X509_V_ERR_UNSUPPORTED_NAME_SYNTAX,
     {"A name of the certificate has an invalid form, so the CA's limits cannot be checked.", readNames,
      "Ask the issuer for a certificate with correct names."}},
    {X509_V_ERR_CRL_PATH_VALIDATION_ERROR,
     {"The chain of the CRL's issuer is not valid.", readCRL,
      "Provide a CRL of the certificate's own issuer."}},
    {X509_V_ERR_HOSTNAME_MISMATCH,
     {"The certificate is for another host name.", readNames,
      "Connect with a name that the certificate lists, or get a certificate for this name."}},
    {X509_V_ERR_IP_ADDRESS_MISMATCH,
     {"The certificate is for another IP address.", readNames,
      "Connect with a name that the certificate lists, or get a certificate for this address."}},
    {X509_V_ERR_EE_KEY_TOO_SMALL,
     {"The certificate's key is too weak.", readCertificate, "Get a certificate with a stronger key."}},
    {X509_V_ERR_CA_KEY_TOO_SMALL,
     {"The key of a CA in the chain is too weak.", readCertificate,
      "Use a certificate from a CA with a stronger key."}},
    {X509_V_ERR_CA_MD_TOO_WEAK,
     {"A certificate of the chain is signed with a weak digest, such as SHA-1.", readCertificate,
      "Get certificates that are signed with SHA-256 or better."}},
    {X509_V_ERR_UNSUPPORTED_SIGNATURE_ALGORITHM,
     {"The signature has an algorithm that OpenSSL does not support.", verifySignature,
      "Get a certificate with a common signature algorithm."}},
    {X509_V_ERR_SIGNATURE_ALGORITHM_MISMATCH,
     {"The signature's algorithm does not fit the issuer's key.", verifySignature,
      "Get the certificate and its intermediates again from the issuer."}},
    {X509_V_ERR_SIGNATURE_ALGORITHM_INCONSISTENCY,
     {"The certificate names two different signature algorithms.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_INVALID_CA,
     {"A certificate of the chain is used as a CA and is no CA.", readChain,
      "Use a certificate from a real CA, with the intermediates that belong to it."}},
    {X509_V_ERR_PATHLEN_INVALID_FOR_NON_CA,
     {"The certificate is no CA and has a path length.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_PATHLEN_WITHOUT_KU_KEY_CERT_SIGN,
     {"A CA has a path length without the key usage keyCertSign.", readCertificate,
      "Ask the CA for a correct CA certificate."}},
    {X509_V_ERR_KU_KEY_CERT_SIGN_INVALID_FOR_NON_CA,
     {"The certificate is no CA and has the key usage keyCertSign.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_ISSUER_NAME_EMPTY,
     {"The certificate does not name its issuer.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_SUBJECT_NAME_EMPTY,
     {"The certificate has neither a subject nor alternative names.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_MISSING_AUTHORITY_KEY_IDENTIFIER,
     {"The certificate has no authority key identifier.", readCertificate,
      "Ask the issuer for a certificate with key identifiers."}},
    {X509_V_ERR_MISSING_SUBJECT_KEY_IDENTIFIER,
     {"A CA of the chain has no subject key identifier.", readCertificate,
      "Ask the CA for a certificate with key identifiers."}},
    {X509_V_ERR_EMPTY_SUBJECT_ALT_NAME,
     {"The list of alternative names is empty.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_EMPTY_SUBJECT_SAN_NOT_CRITICAL,
     {"The certificate has no subject, and its alternative names are not critical.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_CA_BCONS_NOT_CRITICAL,
     {"The basic constraints of a CA are not critical.", readCertificate,
      "Ask the CA for a correct CA certificate."}},
    {X509_V_ERR_AUTHORITY_KEY_IDENTIFIER_CRITICAL,
     {"The authority key identifier is critical.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_SUBJECT_KEY_IDENTIFIER_CRITICAL,
     {"The subject key identifier is critical.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_CA_CERT_MISSING_KEY_USAGE,
     {"A CA of the chain has no key usage.", readCertificate,
      "Ask the CA for a certificate with the key usage keyCertSign."}},
    {X509_V_ERR_EXTENSIONS_REQUIRE_VERSION_3,
     {"The certificate has extensions and is not of version 3.", readCertificate,
      "Ask the issuer for a correct certificate."}},
    {X509_V_ERR_EC_KEY_EXPLICIT_PARAMS,
     {"The key has explicit curve parameters instead of a named curve.", readCertificate,
      "Get a certificate with a key on a named curve."}},
};

Words wordsFor(CertificateChainStatus status)
{
    switch (status) {
    case CertificateChainStatus::Valid:
        return table[0].words;
    case CertificateChainStatus::Untrusted:
        return {
            "No chain leads from the certificate to a trusted root.", readChain,
            "Provide all intermediate certificates, and check that the root is in the trust store."};
    case CertificateChainStatus::SelfSigned:
        return {
            "The chain ends at a self-signed certificate that is not trusted.", readFingerprint,
            "Add that certificate to the trust store if you trust it."};
    case CertificateChainStatus::CRLError:
        return {
            "A CRL that is needed is missing or cannot be used.", readCRL,
            "Provide current CRLs of all issuers."};
    case CertificateChainStatus::Revoked:
        return {"A certificate of the chain is revoked.", readCRL, "Get a new certificate with a new key."};
    case CertificateChainStatus::Expired:
        return {
            "A certificate of the chain has expired.", readDates,
            "Renew the certificate, and check the clock of this system."};
    case CertificateChainStatus::BadSignature:
        return {
            "A signature in the chain is wrong.", verifySignature,
            "Get the certificate and its intermediates again from the issuer."};
    case CertificateChainStatus::Failed:
        break;
    }
    return {
        "The validation failed for another reason.", readCertificate,
        "Look up OpenSSL's error code, and ask the issuer for a correct certificate."};
}

} // namespace

Words wordsFor(CertificateChainStatus status, int errorCode)
{
    auto const* const found = std::find_if(
        std::begin(table), std::end(table), [&](CodeWords const& row) { return row.code == errorCode; });
    bool const fits =
        found != std::end(table) && (errorCode == X509_V_OK) == (status == CertificateChainStatus::Valid);
    return fits ? found->words : wordsFor(status);
}

} // namespace foundation::toolkit
