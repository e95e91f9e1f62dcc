#include "tools/FoundationCerts.hpp"

#include "support/openssl/TLSServer.hpp"
#include "support/pki/TestKeys.hpp"

#include <algorithm>

using namespace foundation::test;

namespace {

class Doctor : public FoundationCerts
{
protected:
    static ProgramRun run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "doctor");
        return foundationCerts(arguments);
    }

    /// Examines a server on the loopback address that sends the chain.
    ProgramRun runAgainst(TLSContextHandle const& context, std::vector<std::string> arguments = {}) const
    {
        TLSServer const listening(context);
        arguments.insert(arguments.begin(), "127.0.0.1:" + listening.port());
        if (std::find(arguments.begin(), arguments.end(), "--roots") == arguments.end()) {
            arguments.insert(arguments.end(), {"--roots", rootFile()});
        }
        return run(arguments);
    }

    ProgramRun runAgainst(
        CertificateAndKey const& own, std::vector<CertificateAndKey> const& chain,
        std::vector<std::string> const& arguments = {}) const
    {
        auto const context = makeTLSContext(TLS_server_method());
        SSL_CTX_set_security_level(context.get(), 0); // for weak keys
        require(SSL_CTX_use_certificate(context.get(), own.certificate.get()));
        require(SSL_CTX_use_PrivateKey(context.get(), own.key.get()));
        for (auto const& member : chain) {
            require(SSL_CTX_add1_chain_cert(context.get(), member.certificate.get()));
        }
        return runAgainst(context, arguments);
    }

    static void expectGood(ProgramRun const& result, std::string const& chain)
    {
        EXPECT_EQ(result.output, "Chain: " + chain + "\nNo fault found.\n");
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.exitStatus, 0);
    }

    static void
    expectFindings(ProgramRun const& result, std::string const& chain, std::string const& findings)
    {
        EXPECT_EQ(result.output, "Chain: " + chain + "\n" + findings);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.exitStatus, 1);
    }

    CertificateAndKey leafWith(CertificateAndKey const& issuer, Mutation const& mutate = {}) const
    {
        return makeLeaf(issuer, "leaf", [&](CertificateSpec& spec) {
            spec.setExtension("subjectAltName", "IP:127.0.0.1,DNS:leaf.example");
            spec.setExtension("authorityInfoAccess", "caIssuers;URI:http://ca.example/ca.cer");
            if (mutate) {
                mutate(spec);
            }
        });
    }

    CertificateAndKey intermediateWith(Mutation const& mutate) const
    {
        return makeIntermediate(root, "intermediate", mutate);
    }

    CertificateAndKey const server = leafWith(intermediate);
};

constexpr char const missingIntermediate[] =
    "1. The certificate's issuer was not found.\n"
    "   Certificate: CN=leaf\n"
    "   Issuer: CN=intermediate\n"
    "   The issuer offers its certificate at: http://ca.example/ca.cer\n"
    "   Advice: Add the missing intermediate certificates to the chain: a server must send them.\n";

constexpr char const expiryAdvice[] =
    "   Advice: Renew the certificate, and check the clock of this system.\n";

} // namespace

TEST_F(Doctor, FindsNoFaultOfGoodServer)
{
    expectGood(runAgainst(server, {intermediate}), "CN=leaf <- CN=intermediate <- CN=root");
    expectGood(
        runAgainst(server, {intermediate}, {"--host", "leaf.example"}),
        "CN=leaf <- CN=intermediate <- CN=root");
}

TEST_F(Doctor, FindsNoFaultOfGoodFile)
{
    auto const chain = write("chain.pem", server.pem() + intermediate.pem());
    expectGood(run({chain, "--roots", rootFile()}), "CN=leaf <- CN=intermediate <- CN=root");
}

TEST_F(Doctor, FindsMissingIntermediate)
{
    expectFindings(runAgainst(server, {}), "CN=leaf", missingIntermediate);
}

TEST_F(Doctor, GivenIntermediateCompletesChain)
{
    auto const given = write("intermediate.pem", intermediate.pem());
    expectGood(runAgainst(server, {}, {"--chain", given}), "CN=leaf <- CN=intermediate <- CN=root");
}

TEST_F(Doctor, FindsWrongOrderOfServer)
{
    expectFindings(
        runAgainst(server, {root, intermediate}), "CN=leaf <- CN=intermediate <- CN=root",
        "1. The certificates are not in the order of the chain.\n"
        "   Certificate: CN=leaf\n"
        "   1. CN=leaf\n"
        "   2. CN=intermediate\n"
        "   3. CN=root\n"
        "   Advice: Put the server's own certificate first, and each issuer after the certificate that it "
        "issued.\n");
}

TEST_F(Doctor, FindsLeafThatIsNotFirst)
{
    auto const result = run({write("chain.pem", intermediate.pem() + server.pem()), "--roots", rootFile()});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_TRUE(contains(result.output, "\n   1. CN=leaf\n   2. CN=intermediate\n")) << result.output;
}

TEST_F(Doctor, FindsExpiredMember)
{
    auto const expired = intermediateWith([](CertificateSpec& spec) {
        spec.notAfter = TimeSpec::at(1700000000);
        spec.notBefore = TimeSpec::at(1600000000);
    });
    expectFindings(
        runAgainst(leafWith(expired), {expired}), "CN=leaf <- CN=intermediate <- CN=root",
        std::string("1. The certificate has expired.\n"
                    "   Certificate: CN=intermediate\n"
                    "   Expired: 2023-11-14T22:13:20Z\n") +
            expiryAdvice);
}

TEST_F(Doctor, FindsOtherHost)
{
    std::string const finding =
        "   Certificate: CN=leaf\n"
        "   The certificate lists: 127.0.0.1, leaf.example\n"
        "   Advice: Connect with a name that the certificate lists, or get a certificate for this ";
    expectFindings(
        runAgainst(server, {intermediate}, {"--host", "other.example"}),
        "CN=leaf <- CN=intermediate <- CN=root",
        "1. The certificate is for another host name.\n" + finding + "name.\n");
    expectFindings(
        runAgainst(server, {intermediate}, {"--host", "127.0.0.2"}), "CN=leaf <- CN=intermediate <- CN=root",
        "1. The certificate is for another IP address.\n" + finding + "address.\n");
}

TEST_F(Doctor, FindsUnknownRoot)
{
    auto const other = write("other.pem", makeRoot("other").pem());
    expectFindings(
        runAgainst(server, {intermediate}, {"--roots", other}), "CN=leaf <- CN=intermediate",
        "1. The certificate's issuer was not found.\n"
        "   Certificate: CN=intermediate\n"
        "   Issuer: CN=root\n"
        "   If this issuer is a root, it is not among the trusted roots.\n"
        "   Advice: Add the missing intermediate certificates to the chain: a server must send them.\n");
    auto const result = runAgainst(server, {intermediate, root}, {"--roots", other});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_TRUE(beginsWith(
        result.output, "Chain: CN=leaf <- CN=intermediate <- CN=root\n"
                       "1. The chain ends at a root that is not trusted.\n"
                       "   Certificate: CN=root\n"
                       "   SHA-256 fingerprint: "))
        << result.output;
}

TEST_F(Doctor, FindsWeakKeys)
{
    auto const weak = [](std::string const& name) {
        return [name](CertificateSpec& spec) { spec.key = rsaKey(1024, name); };
    };
    auto const weakIntermediate = intermediateWith(weak("intermediate"));
    expectFindings(
        runAgainst(leafWith(weakIntermediate, weak("leaf")), {weakIntermediate}),
        "CN=leaf <- CN=intermediate <- CN=root",
        "1. The certificate's key is too weak.\n"
        "   Certificate: CN=leaf\n"
        "   Key: RSA, 1024 bits\n"
        "   Advice: Get a certificate with a stronger key.\n"
        "2. The key of a CA in the chain is too weak.\n"
        "   Certificate: CN=intermediate\n"
        "   Key: RSA, 1024 bits\n"
        "   Advice: Use a certificate from a CA with a stronger key.\n");
}

TEST_F(Doctor, FindsWeakSignature)
{
    auto const result = runAgainst(
        leafWith(intermediate, [](CertificateSpec& spec) { spec.digest = EVP_sha1(); }), {intermediate});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_TRUE(contains(result.output, "   Signature: ecdsa-with-SHA1\n")) << result.output;
}

TEST_F(Doctor, FindsAllFaultsAtOnce)
{
    auto const bad = leafWith(intermediate, [](CertificateSpec& spec) {
        spec.key = rsaKey(1024);
        spec.notBefore = TimeSpec::at(1600000000);
        spec.notAfter = TimeSpec::at(1700000000);
    });
    auto const result = runAgainst(bad, {}, {"--host", "other.example"});
    EXPECT_EQ(result.exitStatus, 1);
    std::size_t position = 0;
    for (auto const& finding :
         {"1. The certificate's key is too weak.", "2. The certificate's issuer was not found.",
          "3. The certificate is for another host name.", "4. The certificate has expired."}) {
        position = result.output.find(finding, position);
        ASSERT_NE(position, std::string::npos) << finding << '\n' << result.output;
    }
}

TEST_F(Doctor, FindsFaultsOfLeafBesideOneThatCannotBeTolerated)
{
    auto const odd = intermediateWith([](CertificateSpec& spec) { spec.removeExtension("keyUsage"); });
    auto const result = runAgainst(leafWith(odd), {odd}, {"--host", "other.example"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_TRUE(contains(result.output, "1. A CA of the chain has no key usage.\n")) << result.output;
    EXPECT_TRUE(contains(result.output, "2. The certificate is for another host name.\n")) << result.output;
}

TEST_F(Doctor, FindsOtherPurpose)
{
    auto const client = leafWith(
        intermediate, [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "clientAuth"); });
    auto const result = run({write("chain.pem", client.pem() + intermediate.pem()), "--roots", rootFile()});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_TRUE(contains(result.output, "1. The certificate is not allowed for this purpose.\n"))
        << result.output;
}

TEST_F(Doctor, ReadsChainOfServerThatRequiresClientCertificate)
{
    auto const context = makeTLSServer(server.certificate, server.key);
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION));
    require(SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION));
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    expectFindings(runAgainst(context), "CN=leaf", missingIntermediate);
}

TEST_F(Doctor, EscapesControlCharacters)
{
    auto const odd = leafWith(intermediate, [](CertificateSpec& spec) {
        spec.subject = commonName("a\x1b[2J");
        spec.issuer = commonName("b\nc");
    });
    auto const result = run({write("odd.pem", odd.pem()), "--roots", rootFile()});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_FALSE(contains(result.output, "\x1b")) << result.output;
    EXPECT_FALSE(contains(result.output, "b\nc")) << result.output;
}

TEST_F(Doctor, ReportsServerThatIsNotReachable)
{
    std::string port;
    {
        TLSServer const listening(makeTLSServer(server.certificate, server.key));
        port = listening.port();
    }
    auto const result = run({"127.0.0.1:" + port, "--roots", rootFile()});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(beginsWith(result.errors, "foundation-certs: 127.0.0.1:" + port + ": ")) << result.errors;
}

TEST_F(Doctor, RefusesWrongUsage)
{
    expectBadInput(run({"missing"}), "missing: The file cannot be opened: No such file or directory");
    for (auto const& target : {"host:0", "host:65536", "host:x", ":443", "::1:443"}) {
        auto const result = run({target, "--roots", rootFile()});
        EXPECT_EQ(result.exitStatus, 2) << target;
        EXPECT_TRUE(beginsWith(result.errors, std::string("foundation-certs: ") + target)) << result.errors;
    }
    auto const chain = write("chain.pem", server.pem());
    expectBadInput(run({chain, "--roots", rootFile(), "--host", ""}), "The host name is empty.");
    EXPECT_EQ(run({}).exitStatus, 2);
}
