#pragma once

#include "support/openssl/Handles.hpp"

#include <string>

namespace foundation::fuzz {

/// How many rounds of key derivation it takes to open the bundle, as it says itself: for its MAC, its
/// encrypted parts and its keys, also those that the passphrase brings to light.
///
/// Whoever makes a bundle may ask for billions of rounds. That is the price that its format sets on each
/// guess of the passphrase, and no defect of a reader; but a fuzzer takes minutes of honest work for a hang.
/// Scrypt counts as more than any limit: its price is no count of rounds.
long long keyDerivationRounds(test::Pkcs12Handle const& bundle, std::string const& passphrase);

} // namespace foundation::fuzz
