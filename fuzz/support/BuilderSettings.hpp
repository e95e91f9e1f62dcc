#pragma once

namespace foundation::fuzz {

/// The tags of the builder's settings in an input. The input is a DER sequence of settings. Numbers are
/// big-endian. A name or usage is one member of its set. A key usage is encoded as its number.
enum class BuilderSetting : unsigned char
{
    KeySize = 0x80,
    Passphrase = 0x81,
    CommonName = 0x82,
    AlternativeName = 0x83,
    Days = 0x84,
    Offset = 0x85,
    SerialNumber = 0x86,
    KeyUsage = 0x87,
    ExtendedKeyUsage = 0x88,
    Reset = 0xA0,
    AsPKCS12 = 0xA1
};

} // namespace foundation::fuzz
