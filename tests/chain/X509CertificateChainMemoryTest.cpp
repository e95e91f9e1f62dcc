#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/X509CertificateChainImpl.hpp>

#include <sstream>

namespace foundation::test {

namespace {

using namespace certificates;

Topology const& pki()
{
    static Topology const topology({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    return topology;
}

struct Input : Unchanging
{
    std::string pem;
};

/// A chain, and a certificate that is no part of it.
struct Subject
{
    X509CertificateChain chain;
    X509Certificate stranger;
};

std::string rendered(Subject const& subject)
{
    return test::rendered(subject.chain);
}

/// Two implementations, of which one is assigned to the other.
struct Implementations
{
    X509CertificateChainImpl source;
    X509CertificateChainImpl target;
};

std::string rendered(Implementations const& pair)
{
    return test::rendered(pair.source.getCertificates()) + "and\n" +
           test::rendered(pair.target.getCertificates());
}

Shortcomings const unloaded = failsWith(
    Failures{
        failureBeginning<X509CertificateChainException>("Error: Loading a certificate chain failed. Reason="),
        failureBeginning<X509CertificateChainException>(
            "Error: Unable to parse X509 certificate inside X509 certificate chain.")},
    7);
Shortcomings const noStream = failsWith(failure<InvalidArgument>(
    "The input X509 certificate chain data stream is invalid. Reason:std::bad_alloc"));
Shortcomings const noFingerprint = failsWith(fingerprintUnknown());
Shortcomings const notWritten = failsWith(certificateUnwritten());

std::vector<OperationOn<Input>> loads()
{
    return {
        {"text", [](auto& input) { return X509CertificateChain(input.pem); }, unloaded},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(input.pem);
             return X509CertificateChain(stream);
         },
         unloaded, noStream},
    };
}

std::vector<OperationOn<Subject>> operations()
{
    return {
        {"empty", [](auto& s) { return s.chain.empty(); }},
        {"getNumCertificates", [](auto& s) { return s.chain.getNumCertificates(); }},
        {"getCertificates", [](auto& s) { return s.chain.getCertificates(); }},
        {"getAsString", [](auto& s) { return s.chain.getAsString(); }, notWritten},
        {"print",
         [](auto& s) { return printed(s.chain); },
         {noFingerprint.failures, asManyLines},
         {{}, shorter}},
        {"equality", [](auto& s) { return s.chain == s.chain; }, noFingerprint},
        {"inequality", [](auto& s) { return s.chain != s.chain; }, noFingerprint},
        {"copy", [](auto& s) { return X509CertificateChain(s.chain); }},
        {"assignment", [](auto& s) { return assigned(s.chain); }},
        {"addCertificate",
         [](auto& s) {
             s.chain.addCertificate(s.stranger);
             return true;
         }},
        {"addCertificate to a chain that was moved from",
         [](auto& s) {
             X509CertificateChain const taken(std::move(s.chain));
             s.chain.addCertificate(s.stranger);
             return true;
         },
         {},
         {},
         Effect::Partial},
        {"popLeafCertificate", [](auto& s) { return s.chain.popLeafCertificate(); }},
    };
}

std::vector<OperationOn<Implementations>> assignments()
{
    return {
        {"copying",
         [](auto& pair) {
             pair.target = pair.source;
             return true;
         }},
        {"moving",
         [](auto& pair) {
             pair.target = std::move(pair.source);
             return true;
         }},
    };
}

std::string bundle(std::vector<std::string> const& names)
{
    return pki().pemBundle(names);
}

Subject subject()
{
    static auto const stranger = makeRoot("stranger").der();
    return {X509CertificateChain(bundle({"root", "ca", "leaf"})), X509Certificate(stranger)};
}

Implementations implementations()
{
    return {
        X509CertificateChainImpl(bundle({"root", "ca"})), X509CertificateChainImpl(bundle({"leaf", "root"}))};
}

FOUNDATION_TEST_WITHOUT_MEMORY(
    Loads, operationsOn<Input>(
               "from ",
               [] {
                   return Input{{}, bundle({"leaf", "ca"})};
               },
               loads()));
FOUNDATION_TEST_WITHOUT_MEMORY(Operations, operationsOn<Subject>("", subject, operations()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    Assignments, operationsOn<Implementations>("", implementations, assignments()));

} // namespace

} // namespace foundation::test
