#pragma once

namespace foundation::fuzz {

/// The tags of the settings of a builder in an input: elements of DER within one sequence. Numbers are
/// big-endian. A name or usage stands for one member of its set, a key usage for its number.
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
