#include "support/assertions/HandleConformance.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace foundation::test {

namespace {

using certificates::PKCS7Certificate;

struct PKCS7CertificateTraits
{
    using Handle = PKCS7Certificate;
    using Failure = certificates::PKCS7CertificateException;
    static constexpr char const* uninitializedText = "Error: PKCS7Certificate is uninitialized.";
    /// No operation refuses an object for want of content.
    static constexpr char const* noContentText = "";

    static PKCS7Certificate loaded(std::string const& name)
    {
        static std::map<std::string, Bytes> encodings;
        Bytes& der = encodings[name];
        if (der.empty()) {
            der = toDer(makeSignedData(name, makeSelfSignedLeaf(name)));
        }
        return PKCS7Certificate(der);
    }

    static std::string identity(PKCS7Certificate const& certificate) { return certificate.getAsString(); }

    static std::vector<Operation<PKCS7Certificate>> operations()
    {
        auto const operation = [](char const* name, auto run) {
            return Operation<PKCS7Certificate>{name, run, OnDefaultObject::Answers};
        };
        return {
            operation("empty", [](auto& object) { object.empty(); }),
            operation("getAsBytes", [](auto& object) { object.getAsBytes(); }),
            operation("getAsString", [](auto& object) { object.getAsString(); }),
            operation("getCertificates", [](auto& object) { object.getCertificates(); }),
            operation("getNumCertificates", [](auto& object) { object.getNumCertificates(); }),
            operation("getSignedData", [](auto& object) { object.getSignedData(); }),
            operation("getSignerCerts", [](auto& object) { object.getSignerCerts(); }),
            operation("verifySignature", [](auto& object) { verify(object); }),
            operation("print", [](auto& object) { print(object); }),
            operation("operator<<", [](auto& object) { std::ostringstream() << object; }),
            operation("operator== on the left", [](auto& object) { isEqual(object, PKCS7Certificate()); }),
            operation("operator== on the right", [](auto& object) { isEqual(PKCS7Certificate(), object); }),
            operation("operator!=", [](auto& object) { isDifferent(object, PKCS7Certificate()); }),
        };
    }

private:
    static void verify(PKCS7Certificate const& object)
    {
        certificates::TrustStore trusted;
        trusted.addCertificate(certificates::X509Certificate(makeRoot("root").der()));
        object.verifySignature(certificates::X509CertificateChain(), trusted, certificates::ByteArray());
    }

    static void print(PKCS7Certificate const& object)
    {
        std::ostringstream out;
        object.print(out);
    }

    static bool isEqual(PKCS7Certificate const& left, PKCS7Certificate const& right) { return left == right; }

    static bool isDifferent(PKCS7Certificate const& left, PKCS7Certificate const& right)
    {
        return left != right;
    }
};

} // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(PKCS7Certificate, HandleConformance, PKCS7CertificateTraits);

} // namespace foundation::test
