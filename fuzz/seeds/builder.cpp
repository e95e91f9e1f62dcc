#include "seeds/Seeds.hpp"
#include "support/BuilderSettings.hpp"
#include "support/pki/Der.hpp"

#include <vector>

namespace foundation::fuzz {

namespace {

using test::Bytes;

Bytes setting(BuilderSetting which, Bytes const& content)
{
    return test::derElement(static_cast<int>(which), content);
}

Bytes setting(BuilderSetting which, std::string const& content)
{
    return setting(which, bytesOf(content));
}

/// Returns the settings with a 1024-bit key, which is the smallest and fastest key for a certificate.
Bytes settings(std::vector<Bytes> chosen)
{
    chosen.push_back(setting(BuilderSetting::KeySize, Bytes{0x04, 0x00}));
    return test::derElement(test::sequenceTag, test::joined(chosen));
}

} // namespace

Seeds builderSeeds()
{
    using Setting = BuilderSetting;
    auto const bundle = setting(Setting::AsPKCS12, Bytes{});
    auto const passphrase = setting(Setting::Passphrase, "secret");
    return {
        {"default", settings({})},
        {"default-bundle", settings({bundle})},
        {"passphrase", settings({passphrase})},
        {"passphrase-bundle", settings({passphrase, bundle})},
        {"passphrase-with-nul", settings({setting(Setting::Passphrase, std::string("a\0b", 3)), bundle})},
        {"passphrase-empty", settings({setting(Setting::Passphrase, ""), bundle})},
        {"common-name", settings({setting(Setting::CommonName, "build.example")})},
        {"common-name-utf8", settings({setting(Setting::CommonName, "\xC3\xA4.example"), bundle})},
        {"common-name-no-utf8", settings({setting(Setting::CommonName, "\xFF")})},
        {"common-name-comma", settings({setting(Setting::CommonName, "a,b")})},
        {"common-name-nul", settings({setting(Setting::CommonName, std::string("a\0b", 3))})},
        {"common-name-64", settings({setting(Setting::CommonName, std::string(64, 'n'))})},
        {"common-name-65", settings({setting(Setting::CommonName, std::string(65, 'n'))})},
        {"alternative-names", settings(
                                  {setting(Setting::AlternativeName, "DNS:a.example"),
                                   setting(Setting::AlternativeName, "IP:192.0.2.1"),
                                   setting(Setting::AlternativeName, "email:a@b.example"),
                                   setting(Setting::AlternativeName, "URI:http://a/"),
                                   setting(Setting::AlternativeName, "RID:1.2.3")})},
        {"alternative-name-other",
         settings({setting(Setting::AlternativeName, "otherName:1.2.3.4;UTF8:other")})},
        {"alternative-name-copied", settings({setting(Setting::AlternativeName, "email:copy")})},
        {"alternative-name-section", settings({setting(Setting::AlternativeName, "dirName:section")})},
        {"alternative-name-generic", settings({setting(Setting::AlternativeName, "ASN1:UTF8:text")})},
        {"times",
         settings(
             {setting(Setting::Days, Bytes{0x1E}), setting(Setting::Offset, Bytes{0xFF, 0xFF, 0xFF, 0xFF})})},
        {"times-furthest", settings({setting(Setting::Offset, Bytes{0x5F, 0x00})})},
        {"times-too-far", settings({setting(Setting::Offset, Bytes{0x61, 0x18})})},
        {"serial", settings({setting(Setting::SerialNumber, Bytes(8, 0xFF))})},
        {"usages", settings(
                       {setting(Setting::KeyUsage, Bytes{0x04}), setting(Setting::KeyUsage, Bytes{0x08}),
                        setting(Setting::ExtendedKeyUsage, "emailProtection"),
                        setting(Setting::ExtendedKeyUsage, "1.2.3.4"),
                        setting(Setting::ExtendedKeyUsage, "critical")})},
        {"usage-unknown", settings({setting(Setting::KeyUsage, Bytes{0x09})})},
        {"reset",
         settings({setting(Setting::Offset, Bytes{0x01}), passphrase, setting(Setting::Reset, Bytes{})})},
        {"key-768", test::derElement(test::sequenceTag, setting(Setting::KeySize, Bytes{0x03, 0x00}))},
        {"key-1536", test::derElement(test::sequenceTag, setting(Setting::KeySize, Bytes{0x06, 0x00}))},
        {"key-4096", test::derElement(test::sequenceTag, setting(Setting::KeySize, Bytes{0x10, 0x00}))},
    };
}

} // namespace foundation::fuzz
