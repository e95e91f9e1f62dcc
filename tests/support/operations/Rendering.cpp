#include "support/operations/Rendering.hpp"

#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/x509_vfy.h>

#include <map>
#include <set>

namespace foundation::test {

using namespace certificates;

std::string rendered(std::string text)
{
    return text;
}

std::string rendered(bool value)
{
    return value ? "true" : "false";
}

std::string rendered(ByteArray const& bytes)
{
    return hexEncode(bytes);
}

std::string rendered(X509Certificate::TimePoint time)
{
    return std::to_string(time.time_since_epoch().count());
}

std::string rendered(std::unordered_map<std::string, std::string> const& attributes)
{
    std::string text;
    for (auto const& [key, value] :
         std::map<std::string, std::string>(attributes.begin(), attributes.end())) {
        text += key + "=" + value + "\n";
    }
    return text;
}

std::string rendered(PublicKeyInfo const& key)
{
    return std::to_string(key.getKeySize()) + " bits\n" +
           (key.getType() == KeyType::RSA
                ? rendered(key.getRSAPublicExponent()) + " " + rendered(key.getRSAModulus())
                : rendered(key.getECCPublicPoint()) + " " + rendered(key.getECCCurve()));
}

std::string rendered(PrivateKeyInfo const& key)
{
    return key.getType() == KeyType::RSA
               ? rendered(key.getRSAPrivateExponent())
               : rendered(key.getECCPrivateInteger()) + " " + rendered(key.getECCCurve());
}

std::string rendered(X509Certificate const& certificate)
{
    return certificate.empty() ? "none"
                               : certificate.getAsString() + " " + std::to_string(certificate.getKeySize()) +
                                     " bits" + (certificate.isCACertificate() ? " CA" : "");
}

std::string rendered(X509CertificateChain const& chain)
{
    return rendered(chain.getCertificates());
}

std::string rendered(TrustStore const& store)
{
    // The live store would do. But asking for it changes how the library keeps it.
    auto const openSSLStore = copyOpenSSLStore(store);
    auto* const entries = openSSLStore == nullptr ? nullptr : X509_STORE_get0_objects(openSSLStore.get());
    std::set<std::string> lines;
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        X509_OBJECT* const entry = sk_X509_OBJECT_value(entries, index);
        auto* const crl = X509_OBJECT_get0_X509_CRL(entry);
        lines.insert(crl == nullptr ? rendered(toDer(share(X509_OBJECT_get0_X509(entry)))) : "CRL");
    }
    return rendered(std::vector<std::string>(lines.begin(), lines.end()));
}

std::string rendered(PKCS7Certificate const& data)
{
    return data.getAsString() + rendered(data.getCertificates());
}

std::string rendered(PKCS12Certificate const& bundle)
{
    return rendered(bundle.getAsBytes()) + rendered(bundle.getCertificate()) + rendered(bundle.getCAChain()) +
           rendered(bundle.getPrivateKeyInfo());
}

std::string rendered(CertificateRevocationResults const& results)
{
    return rendered(results.getRevocationStatus()) + " " + results.getRevokedSerialNumberString() + " " +
           results.getRevocationDateString();
}

std::string rendered(CertificateValidationResults const& results)
{
    return rendered(results.getCertificateChainStatus()) + " " + results.getValidationErrorString() + " " +
           rendered(results.getCertificateRevocationResults()) + " " + rendered(results.getRootCertificate());
}

std::string rendered(PKCS7CertificateValidationResults const& results)
{
    return rendered(results.getSignatureVerificationStatus()) + " " +
           rendered(results.getCertificateChainStatus()) + " " + results.getValidationErrorString();
}

} // namespace foundation::test
