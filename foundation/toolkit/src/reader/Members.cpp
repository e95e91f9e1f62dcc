#include "reader/Members.hpp"

#include "reader/BERElements.hpp"
#include "reader/BundleMembers.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/Exceptions.hpp>

#include <utility>

namespace foundation::toolkit {

namespace {

using foundation::certificates::ByteArray;
using foundation::certificates::InvalidArgument;

class OneMember : public Members
{
public:
    explicit OneMember(Member onlyMember) : member(std::move(onlyMember)) {}

    std::optional<Member> next() override { return std::exchange(member, std::nullopt); }

private:
    std::optional<Member> member;
};

/// Finds the certificates of signed data. The result is empty if the structure has none, and has no value if
/// it is damaged before them.
std::optional<std::string_view> certificatesOfSignedData(std::string_view bytes)
{
    // signedData and signedAndEnvelopedData of PKCS#7. In both, [0] holds the certificates.
    constexpr std::string_view signedData = "\x2a\x86\x48\x86\xf7\x0d\x01\x07\x02";
    constexpr std::string_view signedAndEnvelopedData = "\x2a\x86\x48\x86\xf7\x0d\x01\x07\x04";
    auto const structure = firstElement(bytes);
    if (!structure) {
        return std::nullopt;
    }
    std::string_view rest = structure->content;
    auto const type = takeElement(rest);
    if (!type) {
        return std::nullopt;
    }
    if (type->content != signedData && type->content != signedAndEnvelopedData) {
        return std::string_view();
    }
    auto const wrapped = firstElement(rest);
    auto const body = wrapped && wrapped->tag == berContext0 ? firstElement(wrapped->content) : std::nullopt;
    if (!body || body->tag != berSequence) {
        return std::nullopt;
    }
    rest = body->content;
    while (!rest.empty()) {
        auto const field = takeElement(rest);
        if (!field || field->tag == berContext0) {
            return field ? std::optional(field->content) : std::nullopt;
        }
    }
    return std::string_view();
}

/// Reads the certificates one by one, without OpenSSL's parser, which refuses all of them if one is damaged.
class SignedDataMembers : public Members
{
public:
    explicit SignedDataMembers(std::string structure)
        : bytes(std::move(structure)),
          rest(certificatesOfSignedData(bytes))
    {}

    std::optional<Member> next() override
    {
        while (rest && !rest->empty()) {
            auto following = *rest;
            auto const element = takeElement(following);
            if (!element) {
                rest.reset();
                break;
            }
            if (element->tag == berSequence) { // all other choices are no X.509 certificates
                Member member = memberOf(element->whole);
                rest = following;
                return member;
            }
            rest = following;
        }
        if (rest || wasDamageReported) {
            return std::nullopt;
        }
        Member damage{std::nullopt, "The PKCS#7 structure is damaged.", true};
        wasDamageReported = true;
        return damage;
    }

private:
    std::string const bytes;
    /// No value from damage on.
    std::optional<std::string_view> rest;
    bool wasDamageReported = false;
};

} // namespace

Structure structureOf(std::string_view bytes)
{
    auto const outer = readHeader(bytes);
    if (!outer || outer->tag != berSequence) {
        return Structure::Other;
    }
    bytes.remove_prefix(outer->size);
    auto const inner = readHeader(bytes);
    if (!inner) {
        return Structure::Other;
    }
    switch (inner->tag) {
    case berSequence:
        return Structure::Certificate;
    case berObjectIdentifier:
        return Structure::SignedData;
    case berInteger: {
        // The version of a bundle. Private keys have other versions.
        constexpr std::string_view version = "\x03";
        return inner->contentSize == version.size() && bytes.substr(inner->size, version.size()) == version
                   ? Structure::Bundle
                   : Structure::Other;
    }
    default:
        return Structure::Other;
    }
}

Member memberOf(std::string_view der)
{
    try {
        return Member{Certificate::fromDER(ByteArray(der.begin(), der.end()))};
    } catch (InvalidArgument const& failure) {
        return Member{std::nullopt, failure.what(), false};
    }
}

std::unique_ptr<Members> failureAlone(std::string failure)
{
    return std::make_unique<OneMember>(Member{std::nullopt, std::move(failure), true});
}

std::unique_ptr<Members> membersOf(std::string bytes, std::string const& passphrase)
{
    switch (structureOf(bytes)) {
    case Structure::SignedData:
        return std::make_unique<SignedDataMembers>(std::move(bytes));
    case Structure::Bundle:
        return membersOfBundle(bytes, passphrase);
    case Structure::Certificate:
    case Structure::Other:
        break;
    }
    Member member = memberOf(bytes);
    member.isWhole = !member.certificate;
    return std::make_unique<OneMember>(std::move(member));
}

} // namespace foundation::toolkit
