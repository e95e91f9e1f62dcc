#pragma once

#include "support/openssl/Handles.hpp"

#include <string>

namespace foundation::fuzz {

/// Returns the rounds of key derivation that opening the bundle takes: for its MAC, its encrypted parts and
/// its keys, including those that only the passphrase reveals.
///
/// A bundle may ask for billions of rounds. That makes guessing the passphrase expensive and is not a defect
/// of the reader. A fuzzer, however, would report minutes of such work as a hang. Scrypt counts as more than
/// any limit, because it does not count its cost in rounds.
long long keyDerivationRounds(test::Pkcs12Handle const& bundle, std::string const& passphrase);

} // namespace foundation::fuzz
