#include "support/vectors/PathValidationSuite.hpp"

#include "support/pki/TestPki.hpp"
#include "support/vectors/Vectors.hpp"

#include <algorithm>
#include <iterator>

namespace foundation::test::pkits {

namespace {

std::string const suite = "x509/PKITS_data/";

} // namespace

bool hasDsaKeys(Case const& test)
{
    return test.path.front() == "DSACACert";
}

std::vector<Case> casesWithoutDsaKeys()
{
    std::vector<Case> others;
    std::copy_if(cases().begin(), cases().end(), std::back_inserter(others), [](Case const& test) {
        return !hasDsaKeys(test);
    });
    return others;
}

X509Handle certificate(std::string const& name)
{
    return parseDer(readVector(suite + "certs/" + name + ".crt"));
}

X509Handle trustAnchor()
{
    return certificate("TrustAnchorRootCertificate");
}

CrlHandle crl(std::string const& name)
{
    auto const der = readVector(suite + "crls/" + name + ".crl");
    return own(d2i_X509_CRL_bio(readerOf(der).get(), nullptr));
}

X509Handle endEntityOf(Case const& test)
{
    return certificate(test.path.back());
}

std::vector<X509Handle> intermediatesOf(Case const& test)
{
    std::vector<X509Handle> intermediates;
    for (auto name = test.path.rbegin() + 1; name != test.path.rend(); ++name) {
        intermediates.push_back(certificate(*name));
    }
    return intermediates;
}

std::vector<CrlHandle> crlsOf(Case const& test)
{
    std::vector<CrlHandle> crls = {crl("TrustAnchorRootCRL")};
    for (auto const& name : test.crls) {
        crls.push_back(crl(name));
    }
    return crls;
}

Message messageOf(Case const& test)
{
    auto const text = readVector(suite + "smime/Signed" + test.name + ".eml");
    BIO* content = nullptr;
    auto signedData = own(SMIME_read_PKCS7(readerOf(text).get(), &content));
    return {signedData, contentOf(own(content))};
}

} // namespace foundation::test::pkits
