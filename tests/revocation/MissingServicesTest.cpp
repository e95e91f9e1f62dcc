#include "revocation/HttpClient.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netdb.h>

#include <cstring>
#include <string>

// The resolver of a system without /etc/services, such as a small container image: it takes the place of the
// C library's, knows no name of a service, and leaves everything else to it.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

int numNamesOfServices = 0;

bool isNumber(char const* service)
{
    return service[std::strspn(service, "0123456789")] == '\0';
}

class MissingServices : public LeavesNoTrace
{
protected:
    void TearDown() override
    {
        EXPECT_GT(numNamesOfServices, 0) << "The resolver of this test was not asked.";
        numNamesOfServices = 0;
        LeavesNoTrace::TearDown();
    }
};

} // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library has reserved names
extern "C" int getaddrinfo(
    char const* host, char const* service, addrinfo const* hints,
    addrinfo** addresses) noexcept(noexcept(::getaddrinfo(nullptr, nullptr, nullptr, nullptr)))
{
    if (service != nullptr && !isNumber(service)) {
        ++numNamesOfServices;
        return EAI_SERVICE;
    }
    static auto const original = reinterpret_cast<decltype(&::getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(host, service, hints, addresses);
}

TEST_F(MissingServices, DoNotKeepClientFromPort80)
{
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});

    EXPECT_EQ(fetchOverHttp("127.0.0.2", "/root.crl"), "body");

    EXPECT_EQ(
        server.requests(),
        std::vector<std::string>{
            "GET /root.crl HTTP/1.0\r\nHost: 127.0.0.2\r\nAccept: */*\r\nConnection: close\r\n\r\n"});
}

TEST_F(MissingServices, DoNotHideRevocation)
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"http://127.0.0.2/root.crl"});
    });
    HttpFileServer const server("127.0.0.2", {{"/root.crl", toDer(makeCrl(root, {revoke(leaf)}))}});
    auto const bestEffort = optionsWith({}, Options::CheckCRL::LeafOnly, Options::DownloadCRL::BestEffort);

    auto const results = load(leaf).validateCertificate(X509CertificateChain(), bestEffort, storeOf({root}));

    EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Revoked);
}

TEST_F(MissingServices, DoNotAddPortToHost)
{
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});

    EXPECT_THROWS_WITH_PREFIX(
        X509CertificateException,
        "CRL Download Error: Unable to connect: ", fetchOverHttp("127.0.0.2:80", "/root.crl"));
    EXPECT_EQ(server.numConnections(), 0U);
}
