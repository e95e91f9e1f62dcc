#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/X509CertificateChainImpl.hpp>

#include <sstream>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using foundation::test::rendered; // the functions of this name below would hide it

Topology const& pki()
{
    static Topology const topology({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    return topology;
}

struct Input : Unchanging
{
    std::string pem;
};

/// Two implementations; the source is assigned to the target.
struct Implementations
{
    X509CertificateChainImpl source;
    X509CertificateChainImpl target;
};

std::string rendered(Implementations const& pair)
{
    return rendered(pair.source.getCertificates()) + "and\n" + rendered(pair.target.getCertificates());
}

AllowedOutcomes const notLoaded = failsWith(
    Failures{
        failureBeginning<X509CertificateChainException>("Error: Loading a certificate chain failed. Reason="),
        failureBeginning<X509CertificateChainException>(
            "Error: Unable to parse X509 certificate inside X509 certificate chain.")},
    7);
AllowedOutcomes const noStream = failsWith(failure<InvalidArgument>(
    "The input X509 certificate chain data stream is invalid. Reason:std::bad_alloc"));
std::vector<OperationOn<Input>> loads()
{
    return {
        {"text", [](auto& input) { return X509CertificateChain(input.pem); }, notLoaded},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(input.pem);
             return X509CertificateChain(stream);
         },
         notLoaded, noStream},
    };
}

std::vector<OperationOn<X509CertificateChain>> revivals()
{
    return {
        {"addCertificate to a chain that was moved from",
         [](auto& chain) {
             X509CertificateChain const taken(std::move(chain));
             chain.addCertificate(sharedObjects().certificate);
             return true;
         },
         {},
         {},
         Effect::Partial},
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

X509CertificateChain chain()
{
    return X509CertificateChain(bundle({"root", "ca", "leaf"}));
}

Implementations implementations()
{
    return {
        X509CertificateChainImpl(bundle({"root", "ca"})), X509CertificateChainImpl(bundle({"leaf", "root"}))};
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(
    Loads, operationsOn<Input>(
               "from ",
               [] {
                   return Input{{}, bundle({"leaf", "ca"})};
               },
               loads()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Operations, tableOn<X509CertificateChain>(chain, chainOperations()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Revivals, operationsOn<X509CertificateChain>("", chain, revivals()));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Assignments, operationsOn<Implementations>("", implementations, assignments()));
