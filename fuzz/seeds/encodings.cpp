#include "seeds/Seeds.hpp"

namespace foundation::fuzz {

Seeds encodingsSeeds()
{
    return {
        {"empty", {}},
        {"base64", bytesOf("QUJDRA==")},
        {"base64-without-padding", bytesOf("+/+/abcd")},
        {"base64-padding-within", bytesOf("QU=JDRA=")},
        {"base64-one-over", bytesOf("QUJDR")},
        {"base64-wrapped", bytesOf("QUJD\nRA==")},
        {"hex", bytesOf("00abFF")},
        {"hex-odd", bytesOf("00a")},
        {"hex-prefixed", bytesOf("0x10")},
        {"binary", {0x00, 0x7f, 0x80, 0xff}},
    };
}

} // namespace foundation::fuzz
