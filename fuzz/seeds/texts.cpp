#include "seeds/Seeds.hpp"
#include "support/InputOptions.hpp"
#include "support/pki/TestKeys.hpp"

namespace foundation::fuzz {

namespace {

test::Bytes seedOf(std::string const& text, unsigned option)
{
    auto seed = bytesOf(text);
    seed.push_back(static_cast<unsigned char>(option));
    return seed;
}

} // namespace

Seeds textsSeeds()
{
    Seeds seeds;
    for (std::string const name :
         {"www.example", "a.wild.example", "WWW.EXAMPLE", "www.example.", ".example", "192.0.2.1",
          "2001:db8::1", "2001:db8:0::192.0.2.1", "[::1]", "xn--nxasmq6b.example", "\xC3\xA4.example", ""}) {
        seeds["name-" + std::to_string(seeds.size())] = seedOf(name, text_option::name);
    }
    std::string const report =
        "Errors present: Error code 20  at depth 0Certificate Subject Name=CN=leaf\n. \n"
        "Message:unable to get local issuer certificate\n";
    seeds["report"] = seedOf(report, text_option::report);
    seeds["report-failed"] = seedOf("Validation Failed. Return code=20." + report, text_option::report);
    seeds["report-exception"] = seedOf("Input passphrase is incorrect.", text_option::report);
    for (auto const& key : {test::p256Key(), test::rsaKey(2048), test::ed25519Key(), test::dsaKey()}) {
        seeds["key-" + std::to_string(seeds.size())] = seedOf(test::toPem(key), text_option::key);
    }
    seeds["key-encrypted"] = seedOf(test::toPem(test::p256Key(), "secret"), text_option::key);
    return seeds;
}

} // namespace foundation::fuzz
