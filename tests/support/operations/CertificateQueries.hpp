#pragma once

#include "support/operations/Operation.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace foundation::test {

/// Every read operation of a certificate that asks nothing of any other object.
inline std::vector<Operation<certificates::X509Certificate>> certificateQueries()
{
    using Certificate = certificates::X509Certificate;
    return {
        {"empty", [](Certificate& c) { c.empty(); }, OnDefaultObject::Answers},
        {"getSubjectName", [](Certificate& c) { c.getSubjectName(); }},
        {"getIssuerName", [](Certificate& c) { c.getIssuerName(); }},
        {"getSubjectNameAsRDNs", [](Certificate& c) { c.getSubjectNameAsRDNs(); }},
        {"getIssuerNameAsRDNs", [](Certificate& c) { c.getIssuerNameAsRDNs(); }},
        {"getSubjectCommonName", [](Certificate& c) { c.getSubjectCommonName(); }},
        {"getIssuerCommonName", [](Certificate& c) { c.getIssuerCommonName(); }},
        {"getSerialNumber", [](Certificate& c) { c.getSerialNumber(); }},
        {"getSHA256Fingerprint", [](Certificate& c) { c.getSHA256Fingerprint(); }},
        {"getSignatureAlgorithm", [](Certificate& c) { c.getSignatureAlgorithm(); }},
        {"getValidNotBefore", [](Certificate& c) { c.getValidNotBefore(); }},
        {"getValidNotAfter", [](Certificate& c) { c.getValidNotAfter(); }},
        {"getValidNotBeforeTimePoint", [](Certificate& c) { c.getValidNotBeforeTimePoint(); }},
        {"getValidNotAfterTimePoint", [](Certificate& c) { c.getValidNotAfterTimePoint(); }},
        {"getKeySize", [](Certificate& c) { c.getKeySize(); }},
        {"getModulus", [](Certificate& c) { c.getModulus(); }},
        {"getPublicExponent", [](Certificate& c) { c.getPublicExponent(); }},
        {"getPublicKeyInfo", [](Certificate& c) { c.getPublicKeyInfo(); }},
        {"getExtendedKeyUsages", [](Certificate& c) { c.getExtendedKeyUsages(); }},
        {"getPolicies", [](Certificate& c) { c.getPolicies(); }},
        {"isCACertificate", [](Certificate& c) { c.isCACertificate(); }},
        {"isSelfSigned", [](Certificate& c) { c.isSelfSigned(); }},
        {"isValidForDigitalSigning", [](Certificate& c) { c.isValidForDigitalSigning(); }},
        {"operator==", [](Certificate& c) { static_cast<void>(c == c); }},
        {"operator!=", [](Certificate& c) { static_cast<void>(c != c); }},
        {"getAsBytes", [](Certificate& c) { c.getAsBytes(); }},
        {"getAsString", [](Certificate& c) { c.getAsString(); }},
        {"getAsPEMString", [](Certificate& c) { c.getAsPEMString(); }},
        {"print",
         [](Certificate& c) {
             std::ostringstream out;
             c.print(out);
         }},
        {"operator<<",
         [](Certificate& c) {
             std::ostringstream out;
             out << c;
         }},
    };
}

/// Runs each of them: an answer is as good as an exception of the library's family; any other exception is
/// not.
inline void expectEveryQueryAnswersOrFailsCleanly(certificates::X509Certificate& certificate)
{
    static auto const queries = certificateQueries();
    for (auto const& query : queries) {
        try {
            query.run(certificate);
        } catch (certificates::CertificateException const& /*failure*/) {
            // A failure of the family is a proper answer.
            continue;
        } catch (std::exception const& stranger) {
            ADD_FAILURE() << query.name << ": " << stranger.what();
        }
    }
}

} // namespace foundation::test
