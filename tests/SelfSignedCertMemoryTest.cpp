#include "support/SelfSigned.hpp"
#include "support/WithoutMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <stdexcept>
#include <utility>

namespace foundation::test {

namespace {

using namespace certificates;

struct Builder
{
    SelfSignedCertBuilder builder;
};

std::string rendered(Builder const& /*builder*/)
{
    return "";
}

Builder builder()
{
    Builder made{fastBuilder()};
    made.builder.withSerialNumber(7).withPrivateKeyPassphrase("secret").withCommonName("build.example");
    return made;
}

/// What all certificates of this builder have in common: the key is another one each time.
struct Subject
{
    std::string name;
    std::vector<std::string> extendedKeyUsages;
    bool hasKey = false;
};

template <class Key>
Subject subjectOf(std::pair<X509Certificate, Key> const& made)
{
    return {made.first.getSubjectName(), made.first.getExtendedKeyUsages(), !made.second.empty()};
}

std::string rendered(Subject const& subject)
{
    return subject.name + "\n" + test::rendered(subject.extendedKeyUsages) + (subject.hasKey ? "key" : "");
}

/// Only OpenSSL's first allocation fails: where later ones do, while it makes a key and signs, its heap has
/// been seen damaged now and then, and the program ends at some later moment.
constexpr std::size_t stride = 1000000;

Shortcomings const unmade = failsWith(
    Failures{
        failureBeginning<std::runtime_error>("Failed to generate a certificate: "),
        failureBeginning<X509CertificateException>("Error: Loading a certificate failed. Reason="),
        failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions."),
        failureBeginning<CertificateException>("Failed to "),
        failure<InvalidArgument>("The input certificate has no content."),
    },
    stride);

Shortcomings const notLoaded = failsWith(
    failure<InvalidArgument>("The input certificate data string is invalid. Reason:std::bad_alloc"));

std::vector<OperationOn<Builder>> builds()
{
    return {
        {"build", [](auto& b) { return subjectOf(b.builder.build()); }, unmade, notLoaded},
        {"buildAndGetKeyBytesInPKCS12",
         [](auto& b) { return subjectOf(b.builder.buildAndGetKeyBytesInPKCS12()); }, unmade, notLoaded},
    };
}

FOUNDATION_TEST_WITHOUT_MEMORY(Builds, operationsOn<Builder>("", builder, builds()));

} // namespace

} // namespace foundation::test
